#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "tarsil/platform/Terminal.hpp"
#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil::detail {

/// Another terminal, which tells on the main thread what was written to it, whoever wrote it. Any thread.
class TellingTerminal final : public Terminal {
 public:
  using Teller = std::function<void(Clock::Instant at, Bytes bytes)>;

  TellingTerminal(std::shared_ptr<Terminal> terminal, Teller teller)
      : terminal_(std::move(terminal)), teller_(std::make_shared<const Teller>(std::move(teller))) {}

  int open(const std::string& path) override { return terminal_->open(path); }
  int clearStatusFlags(int descriptor) override { return terminal_->clearStatusFlags(descriptor); }
  int getAttributes(int descriptor, TerminalAttributes& attributes) override {
    return terminal_->getAttributes(descriptor, attributes);
  }
  int setAttributes(int descriptor, Apply when, const TerminalAttributes& attributes) override {
    return terminal_->setAttributes(descriptor, when, attributes);
  }
  int setSpecialSpeed(int descriptor, const TerminalAttributes& attributes) override {
    return terminal_->setSpecialSpeed(descriptor, attributes);
  }
  int getModemLines(int descriptor, int& lines) override {
    return terminal_->getModemLines(descriptor, lines);
  }
  int setModemLines(int descriptor, int lines) override {
    return terminal_->setModemLines(descriptor, lines);
  }
  ssize_t read(int descriptor, void* buffer, std::size_t size) override {
    return terminal_->read(descriptor, buffer, size);
  }
  ssize_t write(int descriptor, const void* bytes, std::size_t size) override {
    const ssize_t count = terminal_->write(descriptor, bytes, size);
    if (count > 0) tell(static_cast<const std::uint8_t*>(bytes), static_cast<std::size_t>(count));
    return count;
  }
  int duplicate(int descriptor) override { return terminal_->duplicate(descriptor); }
  int close(int descriptor) override { return terminal_->close(descriptor); }

 private:
  void tell(const std::uint8_t* bytes, std::size_t count) {
    DispatchQueue::main().async([teller = teller_, at = Clock::now(), written = Bytes(bytes, bytes + count)] {
      (*teller)(at, written);
    });
  }

  const std::shared_ptr<Terminal> terminal_;
  const std::shared_ptr<const Teller> teller_;
};

}  // namespace tarsil::detail
