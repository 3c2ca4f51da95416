#pragma once

#include <string>
#include <vector>

#include "tools/tarsil/Command.hpp"

namespace tarsil::simulators {
class SimulatedDevice;
}  // namespace tarsil::simulators

namespace tarsil::cli {

/// `tarsil simulate`: a simulated device on a pseudo-terminal, until it is interrupted.
class SimulateCommand final : public Command {
 public:
  std::string name() const override { return "simulate"; }
  std::string summary() const override {
    return "Let a simulated device live on a pseudo-terminal, and print its path";
  }
  void declare(CLI::App& command) override;
  ExitCode run() override;

 private:
  void applyFaults(simulators::SimulatedDevice& device) const;

  std::string model_;
  std::vector<std::string> faults_;
  std::string cable_;
  double effort_ = 1.0;
  bool list_ = false;
  bool orders_ = false;
};

}  // namespace tarsil::cli
