#pragma once

#include "tools/tarsil/Command.hpp"

namespace tarsil::cli {

/// `tarsil devices`: the catalogue with line settings and flags.
class DevicesCommand final : public Command {
 public:
  std::string name() const override { return "devices"; }
  std::string summary() const override {
    return "List the supported models with their line settings and flags";
  }
  void declare(CLI::App& command) override;
  ExitCode run() override;

 private:
  bool json_ = false;
  bool markdown_ = false;
};

}  // namespace tarsil::cli
