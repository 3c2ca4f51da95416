#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/tarsil/Command.hpp"
#include "tools/tarsil/send/sentBytes.hpp"

namespace tarsil::cli {

/// `tarsil send`: the bytes that a model's driver would write, without any port.
class SendCommand final : public Command {
 public:
  std::string name() const override { return "send"; }
  std::string summary() const override {
    return "Print the exact bytes that a model would be sent, without any port";
  }
  void declare(CLI::App& command) override;
  ExitCode run() override;

 private:
  std::vector<DeviceCommand> deviceCommands() const;

  std::string model_;
  std::vector<std::string> what_;
  std::optional<float> load_;
  float grade_ = 0;
  double wait_ = 1.0;
  bool json_ = false;
};

}  // namespace tarsil::cli
