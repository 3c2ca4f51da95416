#include "tools/tarsil/devices/DevicesCommand.hpp"

#include <fmt/format.h>

#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>

#include "tools/tarsil/devices/catalogueDevices.hpp"

namespace tarsil::cli {
namespace {

template <class Value>
nlohmann::json orNull(const std::optional<Value>& value) {
  return value ? nlohmann::json(*value) : nlohmann::json();
}

nlohmann::ordered_json asJson(const CatalogueDevice& entry) {
  const auto& device = *entry.device;
  return {{"kind", entry.kind},
          {"name", orNull(device.name)},
          {"baud", device.baud},
          {"databits", orNull(device.databits)},
          {"stopbits", orNull(device.stopbits)},
          {"parity", orNull(device.parity)},
          {"getWithBP_SpO2", device.getWithBP_SpO2},
          {"setWithBP_SpO2", device.setWithBP_SpO2},
          {"canStopBP", orNull(device.canStopBP)},
          {"autoSend", device.autoSend},
          {"actualLoad", orNull(device.actualLoad)}};
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

void printTable(const std::vector<CatalogueDevice>& entries) {
  constexpr auto* row = "{:<10} {:<18} {:>6} {:<5} {:<11} {:<12} {:<9} {}\n";
  std::cout << fmt::format(fmt::runtime(row), "KIND", "MODEL", "BIT/S", "LINE", "BUILT-IN BP", "CAN ABORT BP",
                           "AUTO-SEND", "ACTUAL LOAD");
  for (const auto& [kind, device] : entries) {
    std::cout << fmt::format(fmt::runtime(row), kind, device->name.value_or("Tango"),
                             device->baud == 0 ? "-" : std::to_string(device->baud), line(*device),
                             device->getWithBP_SpO2 == 0 ? "no" : "yes", yesOrNo(device->canStopBP),
                             yesOrNo(device->autoSend), yesOrNo(device->actualLoad));
  }
}

}  // namespace

void DevicesCommand::declare(CLI::App& command) {
  command.add_flag("--json", json_, "Print a JSON list; names and values are those of the library's fields");
}

ExitCode DevicesCommand::run() {
  const auto entries = catalogueDevices();
  if (!json_) {
    printTable(entries);
    return ExitCode::succeeded;
  }
  auto list = nlohmann::ordered_json::array();
  for (const auto& entry : entries) list.push_back(asJson(entry));
  std::cout << list.dump(2) << '\n';
  return ExitCode::succeeded;
}

}  // namespace tarsil::cli
