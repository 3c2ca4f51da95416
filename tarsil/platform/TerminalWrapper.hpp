#pragma once

#include <memory>
#include <utility>

#include "tarsil/platform/Terminal.hpp"

namespace tarsil {

/// Hands every call on to another terminal: a decorator derives from it and overrides what it adds to. Any
/// thread.
class TerminalWrapper : public Terminal {
 public:
  /// `terminal` must not be null.
  explicit TerminalWrapper(std::shared_ptr<Terminal> terminal) : terminal_(std::move(terminal)) {}

  Result<int> open(const std::string& path) override { return terminal_->open(path); }
  Result<> clearStatusFlags(int descriptor) override { return terminal_->clearStatusFlags(descriptor); }
  Result<TerminalAttributes> getAttributes(int descriptor) override {
    return terminal_->getAttributes(descriptor);
  }
  Result<> setAttributes(int descriptor, Apply when, const TerminalAttributes& attributes) override {
    return terminal_->setAttributes(descriptor, when, attributes);
  }
  Result<> setSpecialSpeed(int descriptor, const TerminalAttributes& attributes) override {
    return terminal_->setSpecialSpeed(descriptor, attributes);
  }
  Result<int> getModemLines(int descriptor) override { return terminal_->getModemLines(descriptor); }
  Result<> setModemLines(int descriptor, int lines) override {
    return terminal_->setModemLines(descriptor, lines);
  }
  Result<std::size_t> read(int descriptor, void* buffer, std::size_t size) override {
    return terminal_->read(descriptor, buffer, size);
  }
  Result<std::size_t> write(int descriptor, const void* bytes, std::size_t size) override {
    return terminal_->write(descriptor, bytes, size);
  }
  Result<int> duplicate(int descriptor) override { return terminal_->duplicate(descriptor); }
  Result<> close(int descriptor) override { return terminal_->close(descriptor); }

 private:
  const std::shared_ptr<Terminal> terminal_;
};

}  // namespace tarsil
