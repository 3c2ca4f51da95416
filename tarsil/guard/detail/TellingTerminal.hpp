#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "tarsil/platform/TerminalWrapper.hpp"
#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil::detail {

/// Another terminal, which tells what was written to it, whoever wrote it: at once, on the writer's thread,
/// and again on the main thread. Any thread.
class TellingTerminal final : public TerminalWrapper {
 public:
  using Teller = std::function<void(Clock::Instant at, const Bytes& bytes)>;

  TellingTerminal(std::shared_ptr<Terminal> terminal, Teller atOnce, Teller onMain)
      : TerminalWrapper(std::move(terminal)),
        atOnce_(std::move(atOnce)),
        onMain_(std::make_shared<const Teller>(std::move(onMain))) {}

  Result<std::size_t> write(int descriptor, const void* bytes, std::size_t size) override {
    const auto count = TerminalWrapper::write(descriptor, bytes, size);
    if (*count > 0) tell(static_cast<const std::uint8_t*>(bytes), *count);
    return count;
  }

 private:
  void tell(const std::uint8_t* bytes, std::size_t count) {
    const Clock::Instant at = Clock::now();
    Bytes written(bytes, bytes + count);
    atOnce_(at, written);
    DispatchQueue::main().async(
        [teller = onMain_, at, written = std::move(written)] { (*teller)(at, written); });
  }

  const Teller atOnce_;
  const std::shared_ptr<const Teller> onMain_;
};

}  // namespace tarsil::detail
