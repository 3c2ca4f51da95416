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

BluetoothCallObserver bluetoothEvents(Events& events) {
  return [&events](const BluetoothCall& call) {
    Json event = Json::array({"call", call.receiver, call.name});
    if (call.argument) event.push_back(*call.argument);
    events.add(event);
  };
}

BluetoothScript::BluetoothScript(Events& events, std::shared_ptr<MEDXINGSpO2> oximeter)
    : oximeter_(std::move(oximeter)), central_(std::make_shared<ScriptedCentral>(bluetoothEvents(events))) {
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

// Answers of the peripheral go to the oximeter whether or not it has become the peripheral's delegate: like
// the chunks of a port, they are what the script says that the driver hears.
void BluetoothScript::performEvent(const Operation& operation) {
  const std::string event = operation["event"].text();
  if (event == "state") return central_->updateState(stateNamed(operation["value"].text()));
  if (event == "discover") {
    const auto name = operation.find("name");
    const auto advertisedName = name ? name->optionalText() : std::nullopt;
    lastDiscovered_ = operation["id"].text();
    return central_->discover(lastDiscovered_, advertisedName);
  }
  if (event == "connect") return central_->didConnect(identifier(operation));
  if (event == "disconnect") return central_->didDisconnect(identifier(operation));

  const auto source = peripheral();
  if (event == "services") {
    source->setServices(operation["uuids"].texts());
    return oximeter_->peripheralDidDiscoverServices(source, std::nullopt);
  }
  if (event == "characteristics") {
    const auto owner = operation.find("service");
    const auto service =
        source->setCharacteristics(owner ? owner->text() : oximeter_->serviceid, operation["uuids"].texts());
    return oximeter_->peripheralDidDiscoverCharacteristicsForService(source, service, std::nullopt);
  }
  if (event == "notifyState" || event == "value") {
    const auto uuid = operation.find("uuid");
    const std::string characteristicUUID = uuid ? uuid->text() : oximeter_->characteristicid;
    auto characteristic = source->characteristic(characteristicUUID);
    if (!characteristic) characteristic = std::make_shared<ScriptedCharacteristic>(characteristicUUID);
    if (event == "notifyState") {
      return oximeter_->peripheralDidUpdateNotificationStateForCharacteristic(source, characteristic,
                                                                              std::nullopt);
    }
    const Value value = operation["hex"];
    characteristic->lastValue = value.isNull() ? std::nullopt : std::optional(value.bytes());
    return oximeter_->peripheralDidUpdateValueForCharacteristic(source, characteristic, std::nullopt);
  }
  throw ScriptError("there is no Bluetooth event \"" + event + '"');
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

std::shared_ptr<ScriptedPeripheral> BluetoothScript::peripheral() const {
  const auto stored = std::dynamic_pointer_cast<ScriptedPeripheral>(oximeter_->peripheral);
  return stored ? stored : central_->peripheral(lastDiscovered_);
}

}  // namespace tarsil::cli
