#include "tarsil/bluetooth/bluez/detail/BluezObjects.hpp"

#include "tarsil/bluetooth/uuid.hpp"

namespace tarsil::bluez {

void BluezObjects::add(const std::string& path, const Interfaces& interfaces) {
  if (const auto adapter = interfaces.find(adapterInterface); adapter != interfaces.end()) {
    adapters_.try_emplace(path, false);
    changeAdapter(path, adapter->second);
  }
  if (const auto device = interfaces.find(deviceInterface); device != interfaces.end()) {
    devices_.try_emplace(path);
    changeDevice(path, device->second);
  }
}

void BluezObjects::change(const std::string& path, const std::string& interface, const Properties& changed,
                          const std::vector<std::string>& invalidated) {
  if (interface == adapterInterface) return changeAdapter(path, changed);
  if (interface != deviceInterface) return;
  changeDevice(path, changed);
  const auto device = devices_.find(path);
  if (device == devices_.end()) return;
  for (const auto& property : invalidated) {
    if (property == "RSSI") device->second.RSSI.reset();
  }
}

bool BluezObjects::isCalled(const std::string& interface) {
  return interface == adapterInterface || interface == deviceInterface ||
         interface == characteristicInterface;
}

void BluezObjects::remove(const std::string& path, const std::string& interface) {
  if (interface == adapterInterface) adapters_.erase(path);
  if (interface == deviceInterface) devices_.erase(path);
}

void BluezObjects::clear() {
  adapters_.clear();
  devices_.clear();
}

const Device* BluezObjects::device(const std::string& path) const {
  const auto found = devices_.find(path);
  return found == devices_.end() ? nullptr : &found->second;
}

void BluezObjects::changeAdapter(const std::string& path, const Properties& changed) {
  const auto adapter = adapters_.find(path);
  if (adapter == adapters_.end()) return;
  if (const auto powered = property<bool>(changed, "Powered")) adapter->second = *powered;
}

void BluezObjects::changeDevice(const std::string& path, const Properties& changed) {
  const auto found = devices_.find(path);
  if (found == devices_.end()) return;
  Device& device = found->second;
  if (const auto adapter = property<sdbus::ObjectPath>(changed, "Adapter")) device.adapter = *adapter;
  if (const auto address = property<std::string>(changed, "Address")) device.address = *address;
  if (const auto name = property<std::string>(changed, "Name")) device.name = *name;
  if (const auto RSSI = property<std::int16_t>(changed, "RSSI")) device.RSSI = *RSSI;
  if (const auto connected = property<bool>(changed, "Connected")) device.connected = *connected;
  if (const auto resolved = property<bool>(changed, "ServicesResolved")) device.servicesResolved = *resolved;
  if (const auto UUIDs = property<std::vector<std::string>>(changed, "UUIDs")) {
    device.services.clear();
    for (const auto& UUID : *UUIDs) {
      if (auto text = bluetoothUUIDText(UUID)) device.services.push_back(std::move(*text));
    }
  }
}

}  // namespace tarsil::bluez
