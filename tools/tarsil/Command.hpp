#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "tools/tarsil/exitCodes.hpp"

namespace tarsil::cli {

/// One command of the program. Its arguments and options are members that `declare` binds.
class Command {
 public:
  virtual ~Command() = default;

  /// The word that chooses the command, and what it does in one line.
  virtual std::string name() const = 0;
  virtual std::string summary() const = 0;
  /// Declares arguments and options; called once, before the command line is read.
  virtual void declare(CLI::App& command) = 0;
  /// Does the work on the main thread, after the command line was read. Throws CommandFailure.
  virtual ExitCode run() = 0;
};

}  // namespace tarsil::cli
