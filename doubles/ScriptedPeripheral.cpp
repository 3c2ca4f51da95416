#include "doubles/ScriptedPeripheral.hpp"

namespace tarsil::doubles {

std::vector<std::shared_ptr<BluetoothCharacteristic>> ScriptedService::characteristics() const {
  return {table.begin(), table.end()};
}

std::vector<std::shared_ptr<BluetoothService>> ScriptedPeripheral::services() const {
  return {services_.begin(), services_.end()};
}

void ScriptedPeripheral::setDelegate(std::weak_ptr<BluetoothPeripheralDelegate> delegate) {
  delegate_ = std::move(delegate);
  record("setDelegate", identifier_);
}

void ScriptedPeripheral::discoverServices() {
  record("discoverServices", identifier_);
}

void ScriptedPeripheral::discoverCharacteristics(const std::shared_ptr<BluetoothService>& service) {
  record("discoverCharacteristics", service->UUID());
}

void ScriptedPeripheral::setNotifyValue(bool enabled,
                                        const std::shared_ptr<BluetoothCharacteristic>& characteristic) {
  record(enabled ? "setNotify" : "clearNotify", characteristic->UUID());
}

void ScriptedPeripheral::setServices(const std::vector<std::string>& UUIDs) {
  std::vector<std::shared_ptr<ScriptedService>> services;
  for (const auto& UUID : UUIDs) {
    const auto known = service(UUID);
    services.push_back(known ? known : std::make_shared<ScriptedService>(UUID));
  }
  services_ = std::move(services);
}

std::shared_ptr<ScriptedService> ScriptedPeripheral::setCharacteristics(
    const std::string& serviceUUID, const std::vector<std::string>& UUIDs) {
  auto owner = service(serviceUUID);
  if (!owner) owner = services_.emplace_back(std::make_shared<ScriptedService>(serviceUUID));
  owner->table.clear();
  for (const auto& UUID : UUIDs) owner->table.push_back(std::make_shared<ScriptedCharacteristic>(UUID));
  return owner;
}

std::shared_ptr<ScriptedCharacteristic> ScriptedPeripheral::characteristic(const std::string& UUID) const {
  for (const auto& service : services_) {
    for (const auto& characteristic : service->table) {
      if (characteristic->UUID() == UUID) return characteristic;
    }
  }
  return nullptr;
}

void ScriptedPeripheral::answerServices(const std::vector<std::string>& UUIDs,
                                        const std::optional<BluetoothError>& error) {
  setServices(UUIDs);
  if (const auto host = delegate()) host->peripheralDidDiscoverServices(shared_from_this(), error);
}

void ScriptedPeripheral::answerCharacteristics(const std::string& serviceUUID,
                                               const std::vector<std::string>& UUIDs,
                                               const std::optional<BluetoothError>& error) {
  const auto owner = setCharacteristics(serviceUUID, UUIDs);
  if (const auto host = delegate()) {
    host->peripheralDidDiscoverCharacteristicsForService(shared_from_this(), owner, error);
  }
}

void ScriptedPeripheral::answerNotificationState(const std::string& characteristicUUID, bool notifying,
                                                 const std::optional<BluetoothError>& error) {
  auto target = characteristic(characteristicUUID);
  if (!target) target = std::make_shared<ScriptedCharacteristic>(characteristicUUID);
  target->notifying = notifying;
  if (const auto host = delegate()) {
    host->peripheralDidUpdateNotificationStateForCharacteristic(shared_from_this(), target, error);
  }
}

void ScriptedPeripheral::notify(const std::string& characteristicUUID, std::optional<Bytes> value,
                                const std::optional<BluetoothError>& error) {
  auto target = characteristic(characteristicUUID);
  if (!target) target = std::make_shared<ScriptedCharacteristic>(characteristicUUID);
  target->lastValue = std::move(value);
  if (const auto host = delegate())
    host->peripheralDidUpdateValueForCharacteristic(shared_from_this(), target, error);
}

void ScriptedPeripheral::record(std::string name, std::string argument) const {
  if (observer_) observer_({"peripheral", std::move(name), std::move(argument)});
}

std::shared_ptr<ScriptedService> ScriptedPeripheral::service(const std::string& UUID) const {
  for (const auto& known : services_) {
    if (known->UUID() == UUID) return known;
  }
  return nullptr;
}

}  // namespace tarsil::doubles
