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
  int open(const std::string& path) override;
  int clearStatusFlags(int descriptor) override;
  int getAttributes(int descriptor, TerminalAttributes& attributes) override;
  /// Output that flows is waited for, as are the writes that make it; output that has stood still for 3 s is
  /// given up and discarded.
  int setAttributes(int descriptor, Apply when, const TerminalAttributes& attributes) override;
  int setSpecialSpeed(int descriptor, const TerminalAttributes& attributes) override;
  int getModemLines(int descriptor, int& lines) override;
  int setModemLines(int descriptor, int lines) override;
  ssize_t read(int descriptor, void* buffer, std::size_t size) override;
  /// Writes of several threads go out one after the other, each in one piece.
  ssize_t write(int descriptor, const void* bytes, std::size_t size) override;
  int duplicate(int descriptor) override;
  int close(int descriptor) override;

 private:
  /// What is to be known of an opening beside its descriptor.
  struct Opening;

  void beginOpening(int descriptor);
  std::shared_ptr<Opening> openingOf(int descriptor);
  int lock(int descriptor);
  void unlock(int descriptor);
  int apply(int descriptor, Apply when, const TerminalAttributes& attributes);
  int set(int descriptor, Apply when, const TerminalAttributes& attributes);
  int verify(int descriptor, const TerminalAttributes& asked);
  bool outputFlowsOut(int descriptor, Opening& opening, std::unique_lock<std::mutex>& writing);
  void giveOutputUp(int descriptor, Opening& opening, std::unique_lock<std::mutex>& writing);

  const std::shared_ptr<TerminalDriver> driver_;
  std::mutex mutex_;
  std::map<int, std::shared_ptr<Opening>> openings_;
};

}  // namespace tarsil
