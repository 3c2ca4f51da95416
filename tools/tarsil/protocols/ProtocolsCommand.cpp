#include "tools/tarsil/protocols/ProtocolsCommand.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iostream>
#include <limits>
#include <vector>

#include "tarsil/exercise/ExerciseTest.hpp"
#include "tarsil/guard/eventText.hpp"
#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/exerciseModel.hpp"
#include "tools/tarsil/run/protocolNamed.hpp"

namespace tarsil::cli {
namespace {

const char* deviceOf(const Protocol& protocol) {
  return protocol.device == StressDeviceType::Treadmill ? "treadmill" : "bicycle";
}

std::string stagesText(std::ptrdiff_t stages) {
  return fmt::format("{} stage{}", stages, stages == 1 ? "" : "s");
}

std::ptrdiff_t stagesOf(const Protocol& protocol) {
  return std::count_if(protocol.phases.begin(), protocol.phases.end(),
                       [](const Phase& phase) { return phase.kind == Phase::Kind::stage; });
}

void list() {
  std::cout << fmt::format("{:<16} {:<10} {:>6} {:>6}  {}\n", "NAME", "DEVICE", "TIME", "STAGES", "TITLE");
  for (const std::string& name : builtInProtocols()) {
    const Protocol protocol = protocolNamed(name);
    std::cout << fmt::format("{:<16} {:<10} {:>6} {:>6}  {}\n", name, deviceOf(protocol),
                             clockText(protocol.duration()), stagesOf(protocol), protocol.name);
  }
}

/// What the model's frames do not carry; nobody's limits are asked.
std::vector<std::string> notCarried(const Protocol& protocol, const DeviceModel& model) {
  const Limit none{.highest = std::numeric_limits<float>::max(), .step = 1, .perSecond = 1};
  return objectionsTo(protocol, {.exercise = {.model = model.name, .port = ""},
                                 .limits = {.speed = none, .grade = none, .power = none}});
}

}  // namespace

void ProtocolsCommand::declare(CLI::App& command) {
  auto* const name = command.add_option("NAME", name_, "Print this protocol as its file has it");
  auto* const file = command.add_option("--check", file_, "Check this file, or one of the list");
  file->excludes(name);
  command
      .add_option("--model-limits", model_, "With --check: refuse what the frames of this model do not carry")
      ->needs(file);
}

ExitCode ProtocolsCommand::run() {
  if (!file_.empty()) {
    check();
  } else if (!name_.empty()) {
    std::cout << builtInProtocolText(name_);
  } else {
    list();
  }
  return succeeded;
}

void ProtocolsCommand::check() const {
  const Protocol protocol = protocolNamed(file_);
  std::vector<DeviceModel> models;
  if (model_.empty()) {
    models = exerciseModels();
  } else {
    models.push_back(exerciseModel(model_));
    if (protocol.device != kindOf(models.front()))
      throw CommandFailure(badInput, fmt::format("{}: the protocol is for a {}, {} is none", file_,
                                                 deviceOf(protocol), model_));
    const auto objections = notCarried(protocol, models.front());
    if (!objections.empty())
      throw CommandFailure(badInput, fmt::format("{}: {}", file_, fmt::join(objections, "; ")));
  }
  std::cout << fmt::format("{}: {}, for a {}, {}, {}\n", file_, protocol.name, deviceOf(protocol),
                           stagesText(stagesOf(protocol)), clockText(protocol.duration()));
  for (const DeviceModel& model : models) {
    if (protocol.device != kindOf(model)) continue;
    const auto objections = notCarried(protocol, model);
    if (objections.empty()) std::cout << fmt::format("  {:<18} carries it\n", model.name);
    for (const std::string& objection : objections)
      std::cout << fmt::format("  {:<18} {}\n", model.name, objection);
  }
}

}  // namespace tarsil::cli
