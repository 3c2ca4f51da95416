#include "tools/tarsil/completion/completions.hpp"

#include <algorithm>
#include <functional>
#include <iterator>
#include <map>

#include "simulators/devices/simulatedDevices.hpp"
#include "simulators/physics/Patient.hpp"
#include "tarsil/platform/SerialDeviceRegistry.hpp"
#include "tarsil/station/standardCatalogue.hpp"
#include "tools/tarsil/exerciseModel.hpp"
#include "tools/tarsil/replay/deviceOperations.hpp"
#include "tools/tarsil/run/protocolNamed.hpp"
#include "tools/tarsil/run/stationNamed.hpp"

namespace tarsil::cli {
namespace {

using Words = std::vector<std::string>;

Words namesOf(const std::vector<DeviceModel>& models) {
  Words names;
  for (const DeviceModel& model : models) names.push_back(model.name);
  return names;
}

Words ports() {
  Words names;
  for (const auto& device : SerialDeviceRegistry::shared()->devices())
    names.push_back(device->terminalName.value_or(""));
  return names;
}

Words joined(Words one, const Words& other) {
  one.insert(one.end(), other.begin(), other.end());
  return one;
}

/// "LodeTreadmill@", and behind that the ports.
Words places(const std::vector<DeviceModel>& models, const std::string& word) {
  const std::size_t at = word.find('@');
  Words all;
  if (at == std::string::npos) {
    for (const std::string& name : namesOf(models)) all.push_back(name + "@");
    return all;
  }
  for (const std::string& port : ports()) all.push_back(word.substr(0, at + 1) + port);
  return all;
}

Words faultsOf(const std::string& model) {
  Words faults{"silence", "noise", "drop"};
  simulators::Patient patient;
  if (const auto device = simulators::makeSimulatedDevice(model, patient)) {
    for (const std::string& code : device->refusalCodes()) faults.push_back("refuse=" + code);
  }
  return faults;
}

/// Values of options, by the command where that matters.
Words valuesOf(const std::string& option, const Words& words) {
  const std::string& word = words.back();
  if (option == "--exercise") return joined(places(exerciseModels(), word), namesOf(exerciseModels()));
  if (option == "--station") return stationNames();
  if (option == "--bp") return ports();
  if (option == "--spo2") return joined(ports(), {"bluetooth"});
  if (option == "--protocol") return joined(builtInProtocols(), {"demo"});
  if (option == "--check") return builtInProtocols();
  if (option == "--model-limits") return namesOf(exerciseModels());
  if (option == "--what") return deviceOperations();
  if (option == "--fault") return faultsOf(words.size() > 1 ? words[1] : "");
  return {};
}

/// Words that are no option's.
Words argumentsOf(const std::string& command, const std::string& word) {
  if (command == "send") return namesOf(standardCatalogue().models());
  if (command == "simulate") return simulators::simulatedModels();
  if (command == "protocols") return builtInProtocols();
  if (command == "stop" || command == "console") return places(exerciseModels(), word);
  if (command == "check" || command == "cable") return places(standardCatalogue().models(), word);
  return {};
}

Words optionsOf(const CLI::App& app) {
  Words names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  return names;
}

Words commandsOf(const CLI::App& program) {
  Words names;
  for (const CLI::App* command : program.get_subcommands({})) names.push_back(command->get_name());
  return names;
}

const CLI::App* commandNamed(const CLI::App& program, const std::string& name) {
  for (const CLI::App* command : program.get_subcommands({})) {
    if (command->get_name() == name) return command;
  }
  return nullptr;
}

bool takesValue(const CLI::App& command, const std::string& option) {
  const CLI::Option* const found = option.starts_with("--") ? command.get_option_no_throw(option) : nullptr;
  return found && found->get_items_expected_max() > 0;
}

Words candidates(const CLI::App& program, const Words& words) {
  const std::string& word = words.back();
  if (words.size() == 1)
    return joined(commandsOf(program), word.starts_with('-') ? optionsOf(program) : Words{});
  const CLI::App* const command = commandNamed(program, words.front());
  if (!command) return {};
  const std::string& before = words[words.size() - 2];
  if (words.size() > 2 && takesValue(*command, before)) return valuesOf(before, words);
  if (word.starts_with('-')) return optionsOf(*command);
  return argumentsOf(words.front(), word);
}

}  // namespace

std::vector<std::string> completions(const CLI::App& program, const std::vector<std::string>& words) {
  if (words.empty()) return {};
  Words found;
  for (std::string& candidate : candidates(program, words)) {
    if (candidate.starts_with(words.back())) found.push_back(std::move(candidate));
  }
  return found;
}

}  // namespace tarsil::cli
