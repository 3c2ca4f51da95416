#include "tarsil/bluetooth/bluez/detail/BluezPeripheral.hpp"

#include "tarsil/bluetooth/bluez/detail/BluezCentral.hpp"

namespace tarsil::bluez {

std::vector<std::shared_ptr<BluetoothCharacteristic>> BluezService::characteristics() const {
  if (!discovered) return {};
  return {table.begin(), table.end()};
}

std::vector<std::shared_ptr<BluetoothService>> BluezPeripheral::services() const {
  return {table.begin(), table.end()};
}

void BluezPeripheral::discoverServices() {
  if (const auto central = central_.lock()) central->discoverServices(shared_from_this());
}

void BluezPeripheral::discoverCharacteristics(const std::shared_ptr<BluetoothService>& service) {
  const auto own = find(service);
  const auto central = central_.lock();
  if (own && central) central->discoverCharacteristics(shared_from_this(), own);
}

void BluezPeripheral::setNotifyValue(bool enabled,
                                     const std::shared_ptr<BluetoothCharacteristic>& characteristic) {
  const auto own = find(characteristic);
  const auto central = central_.lock();
  if (own && central) central->setNotifyValue(shared_from_this(), own, enabled);
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
