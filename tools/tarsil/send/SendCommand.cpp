#include "tools/tarsil/send/SendCommand.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <iostream>

#include "tarsil/station/standardCatalogue.hpp"
#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/didYouMean.hpp"
#include "tools/tarsil/numberBetween.hpp"
#include "tools/tarsil/oneOf.hpp"
#include "tools/tarsil/replay/Value.hpp"
#include "tools/tarsil/replay/deviceNamed.hpp"
#include "tools/tarsil/replay/deviceOperations.hpp"

namespace tarsil::cli {
namespace {

constexpr const char* setLoad = "setLoad";

bool contains(const std::vector<std::string>& list, const std::string& text) {
  return std::find(list.begin(), list.end(), text) != list.end();
}

/// Operations that take no arguments, and `setLoad`.
std::vector<std::string> sendableOperations() {
  auto operations = deviceOperations();
  operations.erase(std::remove(operations.begin(), operations.end(), "setDeviceFunction"), operations.end());
  return operations;
}

std::string spaced(const std::string& hex) {
  std::string text;
  for (std::size_t at = 0; at < hex.size(); at += 2) text += (at == 0 ? "" : " ") + hex.substr(at, 2);
  return text;
}

nlohmann::ordered_json asJson(const DeviceCommand& command, const CommandEffect& effect) {
  auto writes = nlohmann::ordered_json::array();
  for (const auto& [after, hex] : effect.writes) {
    writes.push_back(nlohmann::ordered_json{{"after", after.count()}, {"hex", hex}});
  }
  auto errors = nlohmann::ordered_json::array();
  for (const auto& [code, details] : effect.errors) {
    errors.push_back(nlohmann::ordered_json{{"code", code}, {"details", details}});
  }
  nlohmann::ordered_json json{{"what", command.name}, {"sent", writes}, {"errors", errors}};
  if (effect.fatal) json["fatal"] = *effect.fatal;
  return json;
}

void print(const DeviceCommand& command, const CommandEffect& effect) {
  std::cout << command.name << '\n';
  for (const auto& [after, hex] : effect.writes) {
    std::cout << fmt::format("  {:6.3f} s  {}\n", after.count(), spaced(hex));
  }
  for (const auto& [code, details] : effect.errors)
    std::cout << "  error " << code << ": " << details << '\n';
  if (effect.writes.empty() && effect.errors.empty() && !effect.fatal) std::cout << "  nothing\n";
}

/// Loads go out as they are asked for, also in frames that say something else, or nothing.
void warnOfLoad(const std::string& model, float load, float grade) {
  const auto models = standardCatalogue().models();
  const auto found = std::find_if(models.begin(), models.end(), [&](const DeviceModel& known) {
    return known.name == model || known.className == model;
  });
  if (found == models.end() || !found->exercise) return;
  const auto warn = [&](const CarriedRange& range, float value, const char* what, const char* unit) {
    if (range.carries(value)) return;
    std::cerr << fmt::format(
        "tarsil: warning: {} {:g} {}: {} carries {}; no machine reads this as it is meant\n", what, value,
        unit, found->name, range.text(unit));
  };
  if (found->kind == DeviceKind::treadmill) {
    warn(found->exercise->speed, load, "speed", "km/h");
    if (grade != 0 || found->exercise->grade.carriesAnything())
      warn(found->exercise->grade, grade, "grade", "%");
  } else {
    warn(found->exercise->power, load, "power", "W");
  }
}

}  // namespace

void SendCommand::declare(CLI::App& command) {
  command.add_option("MODEL", model_, "Model or driver class; `tarsil devices` lists the models")->required();
  command
      .add_option("--what", what_,
                  "Operation of the device, e.g. startDeivce; several are sent one after another")
      ->required()
      ->allow_extra_args(false)
      ->check(oneOf(sendableOperations()));
  command.add_option("--load", load_, "For setLoad: km/h of a treadmill, watts of an ergometer");
  command.add_option("--grade", grade_, "For setLoad: percent")->capture_default_str();
  command.add_option("--wait", wait_, "Seconds after each operation in which delayed commands show")
      ->check(numberBetween(0, 3600))
      ->capture_default_str();
  command.add_flag("--json", json_, "Print a JSON list with one entry an operation");
}

std::vector<DeviceCommand> SendCommand::deviceCommands() const {
  if (!deviceNamed(model_)) {
    throw CommandFailure(ExitCode::badInput,
                         fmt::format("there is no model \"{}\"; it is one of {}{}", model_,
                                     fmt::join(deviceNames(), ", "), didYouMean(model_, deviceNames())));
  }
  if (contains(what_, setLoad) && !load_) {
    throw CommandFailure(ExitCode::badInput, "setLoad needs --load");
  }
  std::vector<DeviceCommand> commands;
  for (const auto& name : what_) {
    commands.push_back({name, name == setLoad ? std::vector{*load_, grade_} : std::vector<float>{}});
  }
  return commands;
}

ExitCode SendCommand::run() {
  const auto commands = deviceCommands();
  if (contains(what_, setLoad)) warnOfLoad(model_, *load_, grade_);
  const auto effects = sentBytes(model_, commands, std::chrono::duration<double>(wait_));
  auto list = nlohmann::ordered_json::array();
  for (std::size_t at = 0; at < commands.size(); ++at) {
    if (json_) {
      list.push_back(asJson(commands[at], effects[at]));
    } else {
      print(commands[at], effects[at]);
    }
  }
  if (json_) std::cout << list.dump(2) << '\n';
  for (const auto& effect : effects) {
    if (effect.fatal) throw CommandFailure(ExitCode::failed, "the process would stop here: " + *effect.fatal);
  }
  return ExitCode::succeeded;
}

}  // namespace tarsil::cli
