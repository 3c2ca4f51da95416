#pragma once

#include <memory>
#include <mutex>
#include <set>

#include "tarsil/platform/Terminal.hpp"
#include "tarsil/platform/linux/DriverSettings.hpp"
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
  /// Output that flows is waited for; output that has stood still for 3 s is given up and discarded.
  int setAttributes(int descriptor, Apply when, const TerminalAttributes& attributes) override;
  int setSpecialSpeed(int descriptor, const TerminalAttributes& attributes) override;
  int getModemLines(int descriptor, int& lines) override;
  int setModemLines(int descriptor, int lines) override;
  ssize_t read(int descriptor, void* buffer, std::size_t size) override;
  ssize_t write(int descriptor, const void* bytes, std::size_t size) override;
  int duplicate(int descriptor) override;
  int close(int descriptor) override;

 private:
  int apply(int descriptor, Apply when, const TerminalAttributes& attributes);
  int set(int descriptor, Apply when, const DriverSettings& settings);
  int verify(int descriptor, const DriverSettings& asked);
  bool outputFlowsOut(int descriptor);

  int lock(int descriptor);
  void unlock(int descriptor);

  const std::shared_ptr<TerminalDriver> driver_;
  /// Descriptors through which the terminal was marked exclusive here. Root may open a terminal that another
  /// program marked; that mark is not ours to take away.
  std::mutex mutex_;
  std::set<int> marked_;
};

}  // namespace tarsil
