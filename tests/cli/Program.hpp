#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace tarsil::cli {

/// A process that a test started, with pipes to its standard input, output and error. It is killed with this
/// object.
class Program {
 public:
  /// What is left when it has ended.
  struct Ended {
    /// The exit code; 128 + the signal's number when a signal ended it.
    int code = -1;
    std::string output;
    std::string errors;
  };

  /// `tarsil` with these arguments.
  explicit Program(const std::vector<std::string>& arguments);
  /// Any program, found by its path.
  Program(const std::string& path, const std::vector<std::string>& arguments);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  void write(const std::string& text) const;
  void closeInput();
  /// Waits for the next line of standard output; without its end.
  std::string readLine();
  void signal(int number) const;
  /// Closes its input and waits for its end; the output is what was not read yet.
  Ended wait();

 private:
  void start(const std::string& path, const std::vector<std::string>& arguments);

  pid_t process_ = -1;
  int input_ = -1;
  int output_ = -1;
  int errors_ = -1;
  std::string unread_;
};

/// Runs `tarsil` to its end.
Program::Ended run(const std::vector<std::string>& arguments, const std::string& input = "");

}  // namespace tarsil::cli
