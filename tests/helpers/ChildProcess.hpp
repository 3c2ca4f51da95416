#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/DispatchSource.hpp"

namespace tarsil {

/// A program that a test runs beside itself: it writes to its input and waits for its lines while the main
/// run loop runs. Ended, at the latest, with this object. Main thread.
class ChildProcess {
 public:
  /// `command` is a program, looked for as the shell does, and its arguments. What it writes to standard
  /// error goes to the test's own. A program that cannot be started ends at once with status 127.
  explicit ChildProcess(const std::vector<std::string>& command);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void writeLine(std::string_view line);
  void closeInput();
  /// Runs the main loop until the program has written a line that begins like this, which is then forgotten
  /// together with all lines before it. False when it does not come in time.
  bool waitForLine(std::string_view beginning, Duration timeout = std::chrono::seconds(30));
  /// The lines that nobody waited for.
  const std::vector<std::string>& lines() const { return lines_; }

  bool isRunning() const { return pid_ > 0; }
  /// -1 when it does not run.
  pid_t pid() const { return pid_; }
  /// It has ended by itself, and waits to be waited for.
  bool hasEnded() const;
  void signal(int number) const;
  /// Waits for the end of the program; its exit status, -1 when a signal ended it.
  int wait();

 private:
  void read();

  pid_t pid_ = -1;
  int input_ = -1;
  std::shared_ptr<DispatchSource> output_;
  int outputDescriptor_ = -1;
  std::string partial_;
  std::vector<std::string> lines_;
};

}  // namespace tarsil
