#pragma once

#include <sys/types.h>
#include <termios.h>

#include <string>
#include <string_view>
#include <vector>

#include "simulators/lines/PseudoTerminal.hpp"

namespace tarsil::cli {

/// `tarsil` in a terminal of its own, as a person has it: its input and output, and where Ctrl-C comes from.
/// It is killed with this object.
class TerminalProgram {
 public:
  explicit TerminalProgram(const std::vector<std::string>& arguments);
  ~TerminalProgram();
  TerminalProgram(const TerminalProgram&) = delete;
  TerminalProgram& operator=(const TerminalProgram&) = delete;

  void press(std::string_view keys);
  void signal(int number) const;
  /// The window is closed: the terminal is gone, and the kernel tells the program. It shows nothing any more.
  void hangUp() { terminal_.hangUp(); }
  /// Waits until something with this text has been written since the last call.
  void waitFor(const std::string& text);
  /// Waits for its end; the exit code, 128 + the signal's number when a signal ended it.
  int wait();
  /// Everything that it has written.
  const std::string& written() const { return written_; }
  termios modes() const;

 private:
  bool readSome();

  simulators::PseudoTerminal terminal_;
  int descriptor_;
  pid_t process_ = -1;
  std::string written_;
  std::size_t seen_ = 0;
};

}  // namespace tarsil::cli
