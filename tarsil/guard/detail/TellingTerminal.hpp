#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "tarsil/platform/TerminalWrapper.hpp"
#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil::detail {

/// Another terminal, which tells on the main thread what was written to it, whoever wrote it. Any thread.
class TellingTerminal final : public TerminalWrapper {
 public:
  using Teller = std::function<void(Clock::Instant at, Bytes bytes)>;

  TellingTerminal(std::shared_ptr<Terminal> terminal, Teller teller)
      : TerminalWrapper(std::move(terminal)), teller_(std::make_shared<const Teller>(std::move(teller))) {}

  Result<std::size_t> write(int descriptor, const void* bytes, std::size_t size) override {
    const auto count = TerminalWrapper::write(descriptor, bytes, size);
    if (*count > 0) tell(static_cast<const std::uint8_t*>(bytes), *count);
    return count;
  }

 private:
  void tell(const std::uint8_t* bytes, std::size_t count) {
    DispatchQueue::main().async([teller = teller_, at = Clock::now(), written = Bytes(bytes, bytes + count)] {
      (*teller)(at, written);
    });
  }

  const std::shared_ptr<const Teller> teller_;
};

}  // namespace tarsil::detail
