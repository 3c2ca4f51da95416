#pragma once

#include <map>
#include <memory>
#include <mutex>

#include "tarsil/platform/Terminal.hpp"
#include "tarsil/platform/linux/TerminalDriver.hpp"

namespace tarsil {

/// Terminals of the Linux kernel. What a driver silently did not take is found out by reading the settings
/// back. A terminal without a line behind it, such as a pseudo-terminal, takes every line setting and has no
/// modem lines. Calls that a signal interrupts go on.
class LinuxTerminal final : public Terminal {
 public:
  LinuxTerminal();
  explicit LinuxTerminal(std::shared_ptr<TerminalDriver> driver);

  /// Never hands out a standard stream's number, so that nothing a program prints reaches a device. A
  /// terminal that another opener holds: EAGAIN or EBUSY.
  Result<int> open(const std::string& path) override;
  Result<> clearStatusFlags(int descriptor) override;
  Result<TerminalAttributes> getAttributes(int descriptor) override;
  /// Output that flows is waited for, as are the writes that make it; output that has stood still for 3 s is
  /// given up and discarded.
  Result<> setAttributes(int descriptor, Apply when, const TerminalAttributes& attributes) override;
  Result<> setSpecialSpeed(int descriptor, const TerminalAttributes& attributes) override;
  Result<int> getModemLines(int descriptor) override;
  Result<> setModemLines(int descriptor, int lines) override;
  Result<std::size_t> read(int descriptor, void* buffer, std::size_t size) override;
  /// Writes of several threads go out one after the other, each in one piece.
  Result<std::size_t> write(int descriptor, const void* bytes, std::size_t size) override;
  Result<int> duplicate(int descriptor) override;
  Result<> close(int descriptor) override;

 private:
  /// What is to be known of an opening beside its descriptor.
  struct Opening;

  void beginOpening(int descriptor);
  std::shared_ptr<Opening> openingOf(int descriptor);
  Result<> lock(int descriptor);
  void unlock(int descriptor);
  Result<> apply(int descriptor, Apply when, const TerminalAttributes& attributes);
  Result<> set(int descriptor, Apply when, const TerminalAttributes& attributes);
  Result<> verify(int descriptor, const TerminalAttributes& asked);
  bool outputFlowsOut(int descriptor, Opening& opening, std::unique_lock<std::mutex>& writing);
  void giveOutputUp(int descriptor, Opening& opening, std::unique_lock<std::mutex>& writing);

  const std::shared_ptr<TerminalDriver> driver_;
  std::mutex mutex_;
  std::map<int, std::shared_ptr<Opening>> openings_;
};

}  // namespace tarsil
