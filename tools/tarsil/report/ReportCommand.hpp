#pragma once

#include <string>

#include "tools/tarsil/Command.hpp"

namespace tarsil::cli {

/// `tarsil report`: makes a session's report again from its journal, also of a session whose program was
/// killed.
class ReportCommand final : public Command {
 public:
  std::string name() const override { return "report"; }
  std::string summary() const override { return "Make the report of a session from its journal"; }
  void declare(CLI::App& command) override;
  ExitCode run() override;

 private:
  std::string folder_;
};

}  // namespace tarsil::cli
