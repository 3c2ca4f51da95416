#include "tarsil/bluetooth/bluez/detail/BluezPeripheral.hpp"

#include "tarsil/bluetooth/bluez/detail/BluezGattClient.hpp"

namespace tarsil::bluez {

std::vector<std::shared_ptr<BluetoothService>> BluezPeripheral::services() const {
  return {table.begin(), table.end()};
}

void BluezPeripheral::discoverServices() {
  if (const auto gatt = gatt_.lock()) gatt->discoverServices(shared_from_this());
}

void BluezPeripheral::discoverCharacteristics(const std::shared_ptr<BluetoothService>& service) {
  const auto own = find(service);
  const auto gatt = gatt_.lock();
  if (own && gatt) gatt->discoverCharacteristics(shared_from_this(), own);
}

void BluezPeripheral::setNotifyValue(bool enabled,
                                     const std::shared_ptr<BluetoothCharacteristic>& characteristic) {
  const auto own = find(characteristic);
  const auto gatt = gatt_.lock();
  if (own && gatt) gatt->setNotifyValue(shared_from_this(), own, enabled);
}

std::shared_ptr<BluezService> BluezPeripheral::find(const std::shared_ptr<BluetoothService>& service) const {
  for (const auto& own : table) {
    if (own == service) return own;
  }
  return nullptr;
}

std::shared_ptr<BluezCharacteristic> BluezPeripheral::find(
    const std::shared_ptr<BluetoothCharacteristic>& characteristic) const {
  for (const auto& service : table) {
    for (const auto& own : service->table) {
      if (own == characteristic) return own;
    }
  }
  return nullptr;
}

std::shared_ptr<BluezCharacteristic> BluezPeripheral::characteristicAt(const std::string& objectPath) const {
  for (const auto& service : table) {
    for (const auto& own : service->table) {
      if (own->path == objectPath) return own;
    }
  }
  return nullptr;
}

void BluezPeripheral::endConnection() {
  connection = BluetoothPeripheralState::disconnected;
  ++epoch;
  attempting = false;
  awaitsServices = false;
  reasonName.reset();
  reasonText.clear();
  table.clear();
}

}  // namespace tarsil::bluez
