#include "tools/tarsil/replay/facadeOperations.hpp"

#include <functional>
#include <limits>
#include <utility>

#include "tools/tarsil/replay/ScriptError.hpp"

namespace tarsil::cli {
namespace {

using Manager = StressECGDeviceManager;
using Arguments = std::vector<Value>;
using Call = std::function<std::optional<Json>(Manager&, SeenDevices&, const Arguments&)>;

struct FacadeOperation {
  const char* name;
  std::size_t arguments;
  Call call;
};

FacadeOperation plain(const char* name, void (Manager::*operation)()) {
  return {name, 0, [operation](Manager& manager, SeenDevices&, const Arguments&) {
            (manager.*operation)();
            return std::nullopt;
          }};
}

FacadeOperation forUnit(const char* name, void (Manager::*operation)(bool isPeripheral)) {
  return {name, 1, [operation](Manager& manager, SeenDevices&, const Arguments& values) {
            (manager.*operation)(values[0].flag());
            return std::nullopt;
          }};
}

FacadeOperation forRole(const char* name, void (Manager::*operation)(PortType)) {
  return {name, 1, [operation](Manager& manager, SeenDevices&, const Arguments& values) {
            (manager.*operation)(roleOf(values[0]));
            return std::nullopt;
          }};
}

const std::vector<FacadeOperation>& all() {
  static const std::vector<FacadeOperation> operations{
      {"getDeivceType", 0,
       [](Manager& manager, SeenDevices&, const Arguments&) { return Json(manager.getDeivceType()); }},
      {"getDeviceByType", 1,
       [](Manager& manager, SeenDevices& seen, const Arguments& values) {
         return seen.json(manager.getDeviceByType(values[0].text()));
       }},
      {"getSpO2Devices", 0,
       [](Manager& manager, SeenDevices& seen, const Arguments&) {
         return seen.json(manager.getSpO2Devices());
       }},
      {"getPort", 1,
       [](Manager& manager, SeenDevices&, const Arguments& values) {
         return Json(manager.getPort(values[0].flag()));
       }},
      plain("port", &Manager::port),
      {"getSelected", 2,
       [](Manager& manager, SeenDevices& seen, const Arguments& values) {
         return seen.json(manager.getSelected(values[0].text(), roleOf(values[1])));
       }},
      {"selectedPort", 2,
       [](Manager& manager, SeenDevices&, const Arguments& values) {
         manager.selectedPort(values[0].text(), roleOf(values[1]));
         return std::nullopt;
       }},
      {"openPort", 1,
       [](Manager& manager, SeenDevices&, const Arguments& values) {
         return Json(manager.openPort(roleOf(values[0])));
       }},
      plain("closePort", &Manager::closePort),
      plain("startStressDevice", &Manager::startStressDevice),
      plain("stopStressDevice", &Manager::stopStressDevice),
      {"setLoad", 2,
       [](Manager& manager, SeenDevices&, const Arguments& values) {
         manager.setLoad(values[0].number(), values[1].number());
         return std::nullopt;
       }},
      plain("requestLoad", &Manager::requestLoad),
      plain("deviceState", &Manager::deviceState),
      forUnit("startBP", &Manager::startBP),
      forUnit("breakBP", &Manager::breakBP),
      forUnit("requestBP", &Manager::requestBP),
      forUnit("clearBP", &Manager::clearBP),
      forRole("startSpO2", &Manager::startSpO2),
      forRole("stopSpO2", &Manager::stopSpO2),
      {"isSpO2Bluetooth", 1,
       [](Manager& manager, SeenDevices&, const Arguments& values) {
         return Json(manager.isSpO2Bluetooth(values[0].text()));
       }},
      {"getSpO2BlueToothName", 0,
       [](Manager& manager, SeenDevices&, const Arguments&) {
         return textOrNull(manager.getSpO2BlueToothName());
       }},
      plain("connectBluetoothSpO2", &Manager::connectBluetoothSpO2),
  };
  return operations;
}

}  // namespace

FacadeResult performFacadeOperation(StressECGDeviceManager& manager, SeenDevices& seen,
                                    const Operation& operation) {
  for (const auto& known : all()) {
    if (operation.name() == known.name) {
      return {true, known.call(manager, seen, operation.arguments(known.arguments))};
    }
  }
  return {};
}

PortType roleOf(const Value& value) {
  if (!value.isText()) {
    constexpr auto lowest = std::numeric_limits<std::int64_t>::min();
    constexpr auto highest = std::numeric_limits<std::int64_t>::max();
    return static_cast<PortType>(value.integer(lowest, highest));
  }
  const std::string role = value.text();
  if (role == "device") return PortType::device;
  if (role == "BP") return PortType::BP;
  if (role == "SpO2") return PortType::SpO2;
  throw ScriptError("there is no role \"" + role + '"');
}

}  // namespace tarsil::cli
