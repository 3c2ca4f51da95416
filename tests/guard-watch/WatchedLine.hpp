#pragma once

#include <termios.h>

#include <string>

#include "tarsil/runtime/Clock.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil {

/// Opens a terminal and locks it as a port does, raw. A descriptor, or -1 with the reason in errno.
int openLine(const std::string& path, speed_t speed);
void setSpeed(int line, speed_t speed);

/// The device's end of a serial line that a host and its watcher hold open at the other end; unlike a
/// simulated device it sees when the last of them lets go. Any thread.
class WatchedLine {
 public:
  WatchedLine();
  ~WatchedLine();
  WatchedLine(const WatchedLine&) = delete;
  WatchedLine& operator=(const WatchedLine&) = delete;

  /// What a host opens.
  const std::string& path() const { return path_; }

  /// The speed that is in force now, as termios codes it.
  speed_t speed() const;
  /// True when a byte is there within this time.
  bool waitForBytes(Duration timeout) const;
  /// What is there now. Never waits.
  Bytes read();
  /// What arrives until `count` bytes are there, nobody holds the line any more, or the time is over.
  Bytes read(std::size_t count, Duration timeout = std::chrono::seconds(20));
  /// All that arrives until nobody holds the line any more.
  Bytes readToTheEnd(Duration timeout = std::chrono::seconds(20));
  /// True once a read has found that nobody holds the line any more.
  bool isLetGo() const { return isLetGo_; }

 private:
  int device_;
  std::string path_;
  bool isLetGo_ = false;
};

}  // namespace tarsil
