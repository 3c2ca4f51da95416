#include "tools/tarsil/replay/StationSubject.hpp"

#include <functional>

#include "doubles/ScriptedCentral.hpp"
#include "doubles/ScriptedTerminal.hpp"
#include "doubles/scriptedDevice.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tools/tarsil/replay/BluetoothScript.hpp"
#include "tools/tarsil/replay/ReplayHost.hpp"
#include "tools/tarsil/replay/ScriptError.hpp"
#include "tools/tarsil/replay/facadeOperations.hpp"
#include "tools/tarsil/replay/portError.hpp"
#include "tools/tarsil/replay/receiving.hpp"

namespace tarsil::cli {
namespace {

using Names = StressECGDeviceManager::Names;

template <class Result>
Result& ofRole(PortType role, Result& device, Result& BP, Result& SpO2) {
  switch (role) {
    case PortType::device:
      return device;
    case PortType::BP:
      return BP;
    case PortType::SpO2:
      return SpO2;
  }
  throw ScriptError("there is no role " + std::to_string(static_cast<std::int64_t>(role)));
}

/// The manager's own connect: its peripheral goes by its name.
doubles::BluetoothCallObserver centralEvents(Events& events, const StressECGDeviceManager& manager) {
  return [&events, &manager](const doubles::BluetoothCall& call) {
    events.add(Json::array({"call", call.receiver, call.name, textOrNull(manager.getSpO2BlueToothName())}));
  };
}

}  // namespace

StationSubject::StationSubject(ReplayWorld world, StressECGDeviceManager& manager, StationPorts& ports)
    : world_(world),
      manager_(manager),
      ports_(ports),
      anyPort_(ORSSerialPort::serialPortWithDevice(
          doubles::scriptedDevice("ttyReplay0", std::make_shared<doubles::ScriptedTerminal>()))) {
  ports_.set({});
  manager_.delegate = replayHost(world_.events, "manager", allHostSelectors());
  manager_.btManager = std::make_shared<doubles::ScriptedCentral>(centralEvents(world_.events, manager_));
}

void StationSubject::perform(const Operation& operation) {
  const auto result = performFacadeOperation(manager_, seen_, operation);
  if (result.returned) world_.events.add(Json::array({"return", *result.returned}));
  if (result.isKnown || performPortCall(operation) || performHostOperation(operation)) return;
  refuse(operation, "a station");
}

bool StationSubject::performHostOperation(const Operation& operation) {
  const std::string& name = operation.name();
  if (name == "ports") {
    ports_.set(operation["names"].texts());
  } else if (name == "closures") {
    setClosures(operation);
  } else if (name == "delegate") {
    manager_.delegate = replayHost(world_.events, "manager", hostSelectors(operation["manager"]));
  } else if (name == "kiv") {
    setDeviceDelegate(operation);
  } else if (name == "peripheral") {
    setPeripheral(operation);
  } else if (name == "isTango") {
    world_.events.add(Json::array({"return", manager_.isTango}));
  } else {
    return false;
  }
  return true;
}

bool StationSubject::performPortCall(const Operation& operation) {
  const std::string& name = operation.name();
  if (name == "recv") {
    receive(operation);
  } else if (name == "opened") {
    manager_.serialPortWasOpened(*anyPort_);
  } else if (name == "removed") {
    manager_.serialPortWasRemovedFromSystem(*anyPort_);
  } else if (name == "error") {
    manager_.serialPortDidEncounterError(*anyPort_, portError(operation, anyPort_->path()));
  } else {
    return false;
  }
  return true;
}

// A port hands what it receives to whoever is its delegate, and a port without one to nobody.
void StationSubject::receive(const Operation& operation) {
  const PortType role = roleOf(operation["role"]);
  const Bytes chunk = operation["hex"].bytes();
  const auto port = ofRole(role, manager_.devicePort, manager_.BPPort, manager_.SpO2Port);
  const auto driver = port ? port->delegate().lock() : nullptr;
  if (driver) deliverChunk(world_.time, *port, *driver, chunk);
}

void StationSubject::setClosures(const Operation& operation) {
  const auto set = [&](const std::string& name, std::function<void(const Names&)>& closure) {
    const auto wanted = operation.find(name);
    if (!wanted) return;
    closure = nullptr;
    if (!wanted->flag()) return;
    closure = [&events = world_.events, name](const Names& names) {
      events.add(Json::array({"closure", name, names}));
    };
  };
  set("getPortsName", manager_.getPortsName);
  set("getPortsNameWithSpO2", manager_.getPortsNameWithSpO2);
}

void StationSubject::setDeviceDelegate(const Operation& operation) {
  const auto list = operation.find("selectors");
  const auto selectors = list ? hostSelectors(*list) : allHostSelectors();
  const auto& device =
      ofRole(roleOf(operation["role"]), manager_.currentDevice, manager_.BPD, manager_.SpO2D);
  if (device) device->kiv_delegate = replayHost(world_.events, "device", selectors);
}

void StationSubject::setPeripheral(const Operation& operation) {
  const auto none = operation.find("none");
  if (none && none->flag()) {
    manager_.peripheral = nullptr;
    return;
  }
  manager_.peripheral = std::make_shared<doubles::ScriptedPeripheral>(
      "peripheral", operation["name"].optionalText(), bluetoothEvents(world_.events));
}

}  // namespace tarsil::cli
