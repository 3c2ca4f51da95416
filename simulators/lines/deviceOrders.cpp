#include "simulators/lines/deviceOrders.hpp"

#include <algorithm>
#include <cstdio>
#include <optional>

#include "simulators/physics/Patient.hpp"
#include "tarsil/support/numberText.hpp"

namespace tarsil::simulators {
namespace {

std::optional<SimulatedDevice::Button> buttonNamed(const std::string& word) {
  using Button = SimulatedDevice::Button;
  if (word == "start") return Button::start;
  if (word == "stop") return Button::stop;
  if (word == "emergency") return Button::emergency;
  return std::nullopt;
}

}  // namespace

bool obeyDeviceOrder(SimulatedDevice& device, Patient& patient, const std::string& order,
                     const std::string& argument) {
  const bool isSwitch = argument == "on" || argument == "off";
  if (order == "silence" && isSwitch) {
    device.beSilent(argument == "on");
  } else if (order == "noise" && isSwitch) {
    device.beNoisy(argument == "on");
  } else if (order == "drop" && argument.empty()) {
    device.dropAByte();
  } else if (order == "refuse") {
    const auto codes = device.refusalCodes();
    if (std::find(codes.begin(), codes.end(), argument) == codes.end()) return false;
    device.refuseCommands(argument);
  } else if (order == "accept" && argument.empty()) {
    device.refuseCommands(std::nullopt);
  } else if (order == "effort") {
    const auto mets = readDouble(argument);
    if (!mets || *mets < 1.0) return false;
    patient.setEffort(*mets);
  } else if (order == "press" || order == "release") {
    const auto button = buttonNamed(argument);
    return button && (order == "press" ? device.press(*button) : device.release(*button));
  } else if (order == "unheard" && (argument == "stop" || argument == "go")) {
    return device.stopWhenUnheard(argument == "stop");
  } else if (order == "history" && argument.empty()) {
    for (const TruthAt& entry : device.history()) std::puts(text(entry).c_str());
    std::puts("");
    std::fflush(stdout);
  } else if (order == "status" && argument.empty()) {
    std::puts(device.status().c_str());
    std::fflush(stdout);
  } else {
    return false;
  }
  return true;
}

}  // namespace tarsil::simulators
