#pragma once

#include "tools/tarsil/Command.hpp"

namespace tarsil::cli {

/// `tarsil ports`: the serial ports of the machine, and with --watch those that come and go.
class PortsCommand final : public Command {
 public:
  std::string name() const override { return "ports"; }
  std::string summary() const override { return "List the serial ports, or watch them come and go"; }
  void declare(CLI::App& command) override;
  ExitCode run() override;

 private:
  void list() const;
  void watch() const;

  bool watch_ = false;
  bool json_ = false;
};

}  // namespace tarsil::cli
