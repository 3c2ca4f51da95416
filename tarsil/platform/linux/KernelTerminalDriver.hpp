#pragma once

#include <cstdint>

#include "tarsil/platform/linux/TerminalDriver.hpp"

namespace tarsil {

/// The kernel's drivers, asked by ioctl. Speeds go by their number (termios2), not by a code: any integer can
/// be asked for.
class KernelTerminalDriver : public TerminalDriver {
 public:
  int getSettings(int descriptor, TerminalAttributes& settings) override;
  int setSettings(int descriptor, const TerminalAttributes& settings) override;
  int setSettingsAfterOutput(int descriptor, const TerminalAttributes& settings) override;
  int getModemLines(int descriptor, int& lines) override;
  int setModemLines(int descriptor, int lines) override;
  int getUnsentCount(int descriptor, int& count) override;
  int discardUnsent(int descriptor) override;
  void endWrites(int descriptor) override;
  void pause() override;
};

/// True for the speeds in bit/s that the terminal layer has a code for, 0 (hang up) included.
bool isStandardSpeed(std::uint64_t speed);

}  // namespace tarsil
