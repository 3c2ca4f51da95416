#include "tools/tarsil/replay/BluetoothScript.hpp"

#include <array>
#include <utility>

#include "tools/tarsil/replay/ScriptError.hpp"

namespace tarsil::cli {
namespace {

constexpr std::array states{
    std::pair{"unknown", BluetoothState::unknown},
    std::pair{"resetting", BluetoothState::resetting},
    std::pair{"unsupported", BluetoothState::unsupported},
    std::pair{"unauthorized", BluetoothState::unauthorized},
    std::pair{"poweredOff", BluetoothState::poweredOff},
    std::pair{"poweredOn", BluetoothState::poweredOn},
};

BluetoothState stateNamed(const std::string& name) {
  for (const auto& [text, state] : states) {
    if (name == text) return state;
  }
  throw ScriptError("a central has no state \"" + name + '"');
}

}  // namespace

doubles::BluetoothCallObserver bluetoothEvents(Events& events) {
  return [&events](const doubles::BluetoothCall& call) {
    Json event = Json::array({"call", call.receiver, call.name});
    if (call.argument) event.push_back(*call.argument);
    events.add(event);
  };
}

BluetoothScript::BluetoothScript(Events& events, std::shared_ptr<MEDXINGSpO2> oximeter)
    : oximeter_(std::move(oximeter)),
      central_(std::make_shared<doubles::ScriptedCentral>(bluetoothEvents(events))) {
  oximeter_->btManager = central_;
  central_->setDelegate(oximeter_);
}

bool BluetoothScript::perform(const Operation& operation) {
  if (operation.name() == "bt") {
    performEvent(operation);
    return true;
  }
  if (operation.name() == "set") {
    setField(operation);
    return true;
  }
  return false;
}

void BluetoothScript::performEvent(const Operation& operation) {
  const std::string event = operation["event"].text();
  if (performCentralEvent(event, operation) || performPeripheralEvent(event, operation)) return;
  throw ScriptError("there is no Bluetooth event \"" + event + '"');
}

bool BluetoothScript::performCentralEvent(const std::string& event, const Operation& operation) {
  if (event == "state") {
    central_->updateState(stateNamed(operation["value"].text()));
  } else if (event == "discover") {
    const auto name = operation.find("name");
    const auto advertisedName = name ? name->optionalText() : std::nullopt;
    lastDiscovered_ = operation["id"].text();
    central_->discover(lastDiscovered_, advertisedName);
  } else if (event == "connect") {
    central_->didConnect(identifier(operation));
  } else if (event == "disconnect") {
    central_->didDisconnect(identifier(operation));
  } else {
    return false;
  }
  return true;
}

// Answers go to the oximeter whether or not it has become the peripheral's delegate: like the chunks of a
// port, they are what the script says that the driver hears.
bool BluetoothScript::performPeripheralEvent(const std::string& event, const Operation& operation) {
  const auto source = peripheral();
  if (event == "services") {
    source->setServices(operation["uuids"].texts());
    oximeter_->peripheralDidDiscoverServices(source, std::nullopt);
  } else if (event == "characteristics") {
    const auto owner = operation.find("service");
    const std::string serviceUUID = owner ? owner->text() : oximeter_->serviceid;
    const auto service = source->setCharacteristics(serviceUUID, operation["uuids"].texts());
    oximeter_->peripheralDidDiscoverCharacteristicsForService(source, service, std::nullopt);
  } else if (event == "notifyState") {
    oximeter_->peripheralDidUpdateNotificationStateForCharacteristic(source, characteristic(operation),
                                                                     std::nullopt);
  } else if (event == "value") {
    const auto updated = characteristic(operation);
    const Value value = operation["hex"];
    updated->lastValue = value.isNull() ? std::nullopt : std::optional(value.bytes());
    oximeter_->peripheralDidUpdateValueForCharacteristic(source, updated, std::nullopt);
  } else {
    return false;
  }
  return true;
}

std::shared_ptr<doubles::ScriptedCharacteristic> BluetoothScript::characteristic(
    const Operation& operation) const {
  const auto named = operation.find("uuid");
  const std::string UUID = named ? named->text() : oximeter_->characteristicid;
  // A value may come of a characteristic that nobody discovered.
  const auto known = peripheral()->characteristic(UUID);
  return known ? known : std::make_shared<doubles::ScriptedCharacteristic>(UUID);
}

void BluetoothScript::setField(const Operation& operation) {
  const std::string field = operation["field"].text();
  if (field != "handleDisconnect") throw ScriptError("there is no field \"" + field + "\" to set");
  const Value value = operation["value"];
  oximeter_->handleDisconnect = value.isNull() ? std::nullopt : std::optional(value.flag());
}

std::string BluetoothScript::identifier(const Operation& operation) const {
  const auto id = operation.find("id");
  return id ? id->text() : peripheral()->identifier();
}

std::shared_ptr<doubles::ScriptedPeripheral> BluetoothScript::peripheral() const {
  const auto stored = std::dynamic_pointer_cast<doubles::ScriptedPeripheral>(oximeter_->peripheral);
  return stored ? stored : central_->peripheral(lastDiscovered_);
}

}  // namespace tarsil::cli
