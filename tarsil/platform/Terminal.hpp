#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "tarsil/support/Result.hpp"

namespace tarsil {

/// The modes and control characters of a terminal, in the form of <termios.h> but without that header: a flag
/// has the value that it gives it.
struct TerminalModes {
  std::uint32_t c_iflag = 0;
  std::uint32_t c_oflag = 0;
  std::uint32_t c_cflag = 0;
  std::uint32_t c_lflag = 0;
  std::uint8_t c_line = 0;
  std::array<std::uint8_t, 32> c_cc{};
};

/// A terminal's settings: POSIX flags, plus what POSIX has no portable flag for.
struct TerminalAttributes {
  /// Whatever these flags carry of what has a member of its own below does not count.
  TerminalModes modes;
  /// Bit/s; any integer can be asked for.
  std::uint64_t speed = 0;
  /// Bit/s, where what is received has another speed than what is sent; 0: it has the same.
  std::uint64_t inputSpeed = 0;
  bool rtsCtsFlowControl = false;
  bool dtrDsrFlowControl = false;
  bool dcdOutputFlowControl = false;
  /// The parity bit is the same for every byte: set where the modes say odd, clear where they say even.
  bool stickParity = false;
};

/// The system's serial terminals, as the few calls that a port makes. A device that vanished answers ENXIO on
/// every system. Any thread.
class Terminal {
 public:
  enum class Apply { now, afterOutputDrains };

  virtual ~Terminal() = default;

  /// Opens for reading and writing, not as controlling terminal, non-blocking, and locked for this opener
  /// alone: while the descriptor is open, a second opener fails. Returns the descriptor.
  virtual Result<int> open(const std::string& path) = 0;
  /// Clears all file status flags, which makes the descriptor blocking.
  virtual Result<> clearStatusFlags(int descriptor) = 0;

  virtual Result<TerminalAttributes> getAttributes(int descriptor) = 0;
  /// Applies all that the system can do, then fails with EINVAL when the driver did not take a setting, and
  /// with ENOTSUP when the system has no such flow control. A speed that is neither one of the
  /// terminal layer's own nor in force already fails with EINVAL and applies nothing; but after output has
  /// drained attributes of old are put back, and their speed is taken whatever it is. Output that stands
  /// still is given up after a while, with the writes that wait for it; after either no write begins.
  virtual Result<> setAttributes(int descriptor, Apply when, const TerminalAttributes& attributes) = 0;
  /// The driver's special request for a speed that the terminal layer rejects. It gets the whole settings,
  /// because some systems set speed and modes in one call only.
  virtual Result<> setSpecialSpeed(int descriptor, const TerminalAttributes& attributes) = 0;

  /// TIOCM_ bits of all modem lines. A terminal with no lines behind it has none set.
  virtual Result<int> getModemLines(int descriptor) = 0;
  virtual Result<> setModemLines(int descriptor, int lines) = 0;

  virtual Result<std::size_t> read(int descriptor, void* buffer, std::size_t size) = 0;
  /// Waits until all bytes are taken. Fewer, or ESHUTDOWN when there were none, when output was ended so.
  virtual Result<std::size_t> write(int descriptor, const void* bytes, std::size_t size) = 0;
  /// A further descriptor of the same opening, closed on exec.
  virtual Result<int> duplicate(int descriptor) = 0;
  /// Ends the opening's lock too, whoever else still holds a duplicate.
  virtual Result<> close(int descriptor) = 0;
};

}  // namespace tarsil
