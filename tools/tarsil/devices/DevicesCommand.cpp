#include "tools/tarsil/devices/DevicesCommand.hpp"

#include <fmt/format.h>

#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/drivers/vitals/MEDXINGSpO2.hpp"
#include "tarsil/station/standardCatalogue.hpp"

namespace tarsil::cli {
namespace {

template <class Value>
nlohmann::json orNull(const std::optional<Value>& value) {
  return value ? nlohmann::json(*value) : nlohmann::json();
}

/// A device of the model; the Bluetooth oximeter under the name that it advertises.
std::shared_ptr<KivStressDevice> deviceOf(const DeviceModel& model) {
  auto device = model.makeDevice();
  if (const auto oximeter = std::dynamic_pointer_cast<MEDXINGSpO2>(device)) {
    oximeter->name = oximeter->peripheralName;
  }
  return device;
}

nlohmann::ordered_json asJson(const DeviceModel& model) {
  const auto device = deviceOf(model);
  return {{"kind", kindName(model.kind)},
          {"name", orNull(device->name)},
          {"baud", device->baud},
          {"databits", orNull(device->databits)},
          {"stopbits", orNull(device->stopbits)},
          {"parity", orNull(device->parity)},
          {"getWithBP_SpO2", device->getWithBP_SpO2},
          {"setWithBP_SpO2", device->setWithBP_SpO2},
          {"canStopBP", orNull(device->canStopBP)},
          {"autoSend", device->autoSend},
          {"actualLoad", orNull(device->actualLoad)}};
}

std::string yesOrNo(const std::optional<bool>& flag) {
  if (!flag) return "-";
  return *flag ? "yes" : "no";
}

/// "8N1"; the Bluetooth oximeter has no line.
std::string line(const KivStressDevice& device) {
  if (!device.databits || !device.stopbits || !device.parity) return "-";
  return fmt::format("{}{}{}", *device.databits, *device.parity == 0 ? "N" : "?", *device.stopbits);
}

void printTable(const std::vector<DeviceModel>& models) {
  constexpr auto* row = "{:<10} {:<18} {:>6} {:<5} {:<11} {:<12} {:<9} {}\n";
  std::cout << fmt::format(fmt::runtime(row), "KIND", "MODEL", "BIT/S", "LINE", "BUILT-IN BP", "CAN ABORT BP",
                           "AUTO-SEND", "ACTUAL LOAD");
  for (const auto& model : models) {
    const auto device = model.makeDevice();
    std::cout << fmt::format(fmt::runtime(row), kindName(model.kind), model.name,
                             device->baud == 0 ? "-" : std::to_string(device->baud), line(*device),
                             device->getWithBP_SpO2 == 0 ? "no" : "yes", yesOrNo(device->canStopBP),
                             yesOrNo(device->autoSend), yesOrNo(device->actualLoad));
  }
}

/// What a model's frames can carry.
std::string loadsOf(const DeviceModel& model) {
  if (!model.exercise) return "";
  if (!model.exercise->canBeDriven()) return "none";
  std::vector<std::string> loads;
  const auto add = [&loads](const CarriedRange& range, const char* unit) {
    if (range.carriesAnything()) loads.push_back(range.text(unit));
  };
  add(model.exercise->speed, "km/h");
  add(model.exercise->grade, "%");
  add(model.exercise->power, "W");
  return fmt::format("{}", fmt::join(loads, "; "));
}

/// "speed in tenths, grade"
std::string reportedLoad(const DeviceModel& model) {
  if (model.kind == DeviceKind::ergometer) return "power";
  const auto in = [](float unit) { return unit == 10 ? " in tenths" : ""; };
  return fmt::format("speed{}, grade{}", in(model.exercise->speedUnit), in(model.exercise->gradeUnit));
}

/// What a model's driver reports.
std::string reportsOf(const DeviceModel& model) {
  if (model.kind == DeviceKind::bloodPressureMonitor) return "blood pressure";
  if (model.kind == DeviceKind::oximeter) return "oxygen saturation";
  const ExerciseFacts& facts = *model.exercise;
  if (facts.loadReport == LoadReport::none) return "nothing (send-only)";
  std::vector<std::string> reports{reportedLoad(model)};
  if (facts.loadReport == LoadReport::firstOnly) reports.back() += " (its first answer, for ever)";
  if (facts.reportsPedalRate) reports.emplace_back("pedal rate");
  if (facts.reportsAcknowledgements) reports.emplace_back("acknowledgements");
  if (facts.reportsReadiness) reports.emplace_back("readiness");
  if (facts.reportsRefusals) reports.emplace_back("errors");
  if (facts.answersPressure) reports.emplace_back("blood pressure");
  return fmt::format("{}", fmt::join(reports, ", "));
}

void printMarkdown(const std::vector<DeviceModel>& models) {
  std::cout << "| model | kind | bit/s | loads that it can carry | reports |\n|---|---|---|---|---|\n";
  for (const auto& model : models) {
    const auto device = model.makeDevice();
    std::cout << fmt::format("| `{}` | {} | {} | {} | {} |\n", model.name, kindName(model.kind),
                             device->baud == 0 ? "Bluetooth LE" : std::to_string(device->baud),
                             loadsOf(model), reportsOf(model));
  }
}

}  // namespace

void DevicesCommand::declare(CLI::App& command) {
  auto* const json = command.add_flag(
      "--json", json_, "Print a JSON list; names and values are those of the library's fields");
  command
      .add_flag("--markdown", markdown_,
                "Print the table of the README: what each model can be asked, and what it reports")
      ->excludes(json);
}

ExitCode DevicesCommand::run() {
  const auto models = standardCatalogue().models();
  if (markdown_) {
    printMarkdown(models);
  } else if (json_) {
    auto list = nlohmann::ordered_json::array();
    for (const auto& model : models) list.push_back(asJson(model));
    std::cout << list.dump(2) << '\n';
  } else {
    printTable(models);
  }
  return ExitCode::succeeded;
}

}  // namespace tarsil::cli
