#pragma once

#include "tarsil/platform/Terminal.hpp"

namespace tarsil {

/// The requests that a terminal's driver answers: 0, or -1 with the driver's own reason in errno. Adapters
/// differ in what they take, and say 0 to much that they do not take. Any thread.
class TerminalDriver {
 public:
  virtual ~TerminalDriver() = default;

  /// Speeds are of 32 bits, and there is no flow control but RTS/CTS.
  virtual int getSettings(int descriptor, TerminalAttributes& settings) = 0;
  virtual int setSettings(int descriptor, const TerminalAttributes& settings) = 0;
  /// As `setSettings`, when all output has left. Waits for as long as that takes.
  virtual int setSettingsAfterOutput(int descriptor, const TerminalAttributes& settings) = 0;

  /// TIOCM_ bits; ENOTTY from a terminal with no line behind it.
  virtual int getModemLines(int descriptor, int& lines) = 0;
  virtual int setModemLines(int descriptor, int lines) = 0;

  /// How many written bytes have not left yet.
  virtual int getUnsentCount(int descriptor, int& count) = 0;
  virtual int discardUnsent(int descriptor) = 0;
  /// Makes the opening non-blocking, and wakes the write that waits in it to find out.
  virtual void endWrites(int descriptor) = 0;
  /// Gives the line 10 ms to move bytes on.
  virtual void pause() = 0;
};

}  // namespace tarsil
