#pragma once

#include <string>

#include "tarsil/support/bytes.hpp"

namespace tarsil::simulators {

/// A pseudo-terminal whose far end (`path()`) a program opens as if it were a serial port. Throws
/// std::system_error when the system gives none.
class PseudoTerminal {
 public:
  PseudoTerminal();
  ~PseudoTerminal();
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;

  const std::string& path() const { return path_; }
  /// This end; -1 after `hangUp`.
  int descriptor() const { return master_; }

  /// What the far end has written; empty when there is nothing. Never waits.
  Bytes read();
  void write(ByteView bytes);
  /// Whether the far end has not read all that was written.
  bool hasUnread() const;
  /// Takes back what the far end has not read.
  void discardUnread();
  /// The device is unplugged: the far end's owner sees it vanish.
  void hangUp();

 private:
  int master_ = -1;
  /// Kept open, so that the line exists before a program opens it and after it closes it.
  int slave_ = -1;
  std::string path_;
};

}  // namespace tarsil::simulators
