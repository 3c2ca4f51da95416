#pragma once

#include <istream>
#include <ostream>
#include <string>

#include "tools/tarsil/Command.hpp"

namespace tarsil::cli {

/// `tarsil replay`: runs a script and prints every event, one JSON line each.
class ReplayCommand final : public Command {
 public:
  std::string name() const override { return "replay"; }
  std::string summary() const override {
    return "Run a script against a driver or a whole station and print every event";
  }
  void declare(CLI::App& command) override;
  ExitCode run() override;

 private:
  void replay(std::istream& script, const std::string& scriptName) const;

  std::string file_;
  bool ops_ = false;
};

}  // namespace tarsil::cli
