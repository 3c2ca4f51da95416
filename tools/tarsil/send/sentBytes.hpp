#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/tarsil/replay/Events.hpp"

namespace tarsil::cli {

/// One operation of a device, with its arguments.
struct DeviceCommand {
  std::string name;
  std::vector<float> arguments;
};

/// What one operation brought.
struct CommandEffect {
  struct Write {
    std::chrono::duration<double> afterCommand;
    std::string hex;
  };
  std::vector<Write> writes;
  /// Code and details.
  std::vector<std::pair<std::string, std::string>> errors;
  /// Why the process would have stopped.
  std::optional<std::string> fatal;
};

/// Performs the commands one after another on a new device of that model, on a port where nobody answers, and
/// gives each `wait` of time on a clock of its own. One entry a command.
std::vector<CommandEffect> sentBytes(const std::string& model, const std::vector<DeviceCommand>& commands,
                                     std::chrono::duration<double> wait);

}  // namespace tarsil::cli
