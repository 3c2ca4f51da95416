#pragma once

#include <memory>
#include <string>

#include "tarsil/support/FileDescriptor.hpp"
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
  /// Whether a program has the far end open. What was unread when it was opened is discarded, as no line
  /// keeps bytes for a port that is closed. To be asked whenever `openingsDescriptor()` is readable, at the
  /// least: the system keeps no count of openings that nobody asks about.
  bool isOpenElsewhere();
  int openingsDescriptor() const { return openings_; }
  /// The device is unplugged: the far end's owner sees it vanish.
  void hangUp();

  /// No other pseudo-terminal of the machine gets this path while this object or what it answers here lives,
  /// hung up or not: whoever waits for a device to come back would open somebody else's.
  std::shared_ptr<const void> takenPath() const { return slave_; }

 private:
  int master_ = -1;
  /// Kept open, so that the line exists before a program opens it and after it closes it.
  std::shared_ptr<const FileDescriptor> slave_;
  /// Tells of each opening and closing of the far end.
  int openings_ = -1;
  int openers_ = 0;
  std::string path_;
};

}  // namespace tarsil::simulators
