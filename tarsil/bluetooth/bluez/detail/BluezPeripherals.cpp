#include "tarsil/bluetooth/bluez/detail/BluezPeripherals.hpp"

namespace tarsil::bluez {

BluezPeripherals::Peripheral BluezPeripherals::of(const Device& device,
                                                  const std::weak_ptr<BluezGattClient>& gatt) {
  if (auto known = withAddress(device.address)) return known;
  std::erase_if(byAddress_, [](const auto& entry) { return entry.second.expired(); });
  auto made = std::make_shared<BluezPeripheral>(gatt, device.address);
  made->lastName = device.name;
  byAddress_[device.address] = made;
  return made;
}

BluezPeripherals::Peripheral BluezPeripherals::withAddress(const std::string& address) const {
  const auto found = byAddress_.find(address);
  return found == byAddress_.end() ? nullptr : found->second.lock();
}

BluezPeripherals::Peripheral BluezPeripherals::own(
    const std::shared_ptr<BluetoothPeripheral>& peripheral) const {
  auto known = peripheral ? withAddress(peripheral->identifier()) : nullptr;
  return known == peripheral ? known : nullptr;
}

BluezPeripherals::Peripheral BluezPeripherals::heldAt(const std::string& path) const {
  for (const auto& peripheral : held_) {
    if (peripheral->path == path) return peripheral;
  }
  return nullptr;
}

}  // namespace tarsil::bluez
