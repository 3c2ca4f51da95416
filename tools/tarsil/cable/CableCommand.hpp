#pragma once

#include <string>

#include "tools/tarsil/Command.hpp"

namespace tarsil::cli {

/// `tarsil cable`: a cable with the faults that one asks for, between a device's port and a pseudo-terminal
/// for its host, until it is interrupted.
class CableCommand final : public Command {
 public:
  std::string name() const override { return "cable"; }
  std::string summary() const override {
    return "Put a cable with faults between a port and its host, and print the host's path";
  }
  void declare(CLI::App& command) override;
  ExitCode run() override;

 private:
  std::string device_;
  std::string cable_;
  bool orders_ = false;
};

}  // namespace tarsil::cli
