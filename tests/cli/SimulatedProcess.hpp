#pragma once

#include <gtest/gtest.h>
#include <poll.h>

#include <string>
#include <vector>

#include "tests/cli/Program.hpp"

namespace tarsil::cli {

/// A simulated device, as `tarsil simulate` runs it: a process of its own on a pseudo-terminal.
class SimulatedProcess {
 public:
  explicit SimulatedProcess(const std::string& model, const std::vector<std::string>& options = {})
      : program_(arguments(model, options)), path_(program_.readLine()) {}

  /// The path of its port.
  const std::string& path() const { return path_; }
  void order(const std::string& order) const { program_.write(order + "\n"); }
  std::string status() {
    order("status");
    return program_.readLine();
  }
  /// Waits until its status has this text; what does not come fails the test.
  void waitFor(const std::string& text) {
    constexpr int pause = 20;  // ms
    constexpr int longestWait = 30'000;
    for (int waited = 0; status().find(text) == std::string::npos; waited += pause) {
      if (waited >= longestWait) {
        ADD_FAILURE() << "it never said " << text;
        return;
      }
      poll(nullptr, 0, pause);
    }
  }
  Program& program() { return program_; }

 private:
  static std::vector<std::string> arguments(const std::string& model,
                                            const std::vector<std::string>& options) {
    std::vector<std::string> words{"simulate", model, "--orders"};
    words.insert(words.end(), options.begin(), options.end());
    return words;
  }

  Program program_;
  std::string path_;
};

}  // namespace tarsil::cli
