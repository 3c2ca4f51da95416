#pragma once

#include <stdexcept>
#include <string>

#include "tools/tarsil/exitCodes.hpp"

namespace tarsil::cli {

/// Ends the command: one line on standard error, and the exit code.
class CommandFailure : public std::runtime_error {
 public:
  CommandFailure(ExitCode code, const std::string& line) : std::runtime_error(line), code_(code) {}

  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

}  // namespace tarsil::cli
