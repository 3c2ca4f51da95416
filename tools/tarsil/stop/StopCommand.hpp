#pragma once

#include <string>

#include "tools/tarsil/Command.hpp"

namespace tarsil::cli {

/// `tarsil stop`: stops an exercise device, whoever left it running, and says what it saw.
class StopCommand final : public Command {
 public:
  std::string name() const override { return "stop"; }
  std::string summary() const override { return "Stop an exercise device until it is seen to stand"; }
  void declare(CLI::App& command) override;
  ExitCode run() override;

 private:
  std::string device_;
  double patience_ = 60;
};

}  // namespace tarsil::cli
