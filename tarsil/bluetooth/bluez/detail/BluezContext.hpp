#pragma once

#include <memory>
#include <string>

#include "tarsil/bluetooth/BluetoothCentral.hpp"
#include "tarsil/bluetooth/bluez/detail/BluezObjects.hpp"
#include "tarsil/bluetooth/bluez/detail/Lifeline.hpp"
#include "tarsil/bluetooth/bluez/detail/SystemBus.hpp"

namespace tarsil::bluez {

/// What the parts of a central share; the central keeps it up to date.
struct BluezContext {
  /// The central's.
  Lifeline life;
  /// Null where there is no system bus.
  std::shared_ptr<SystemBus> bus;
  BluetoothState state = BluetoothState::unknown;
  BluezObjects objects;
  /// Path of the adapter in use; empty while there is none.
  std::string adapter;

  bool isOn() const { return state == BluetoothState::poweredOn; }
  /// Null when the adapter in use knows none at this path.
  const Device* device(const std::string& path) const {
    const Device* known = objects.device(path);
    return known != nullptr && known->adapter == adapter ? known : nullptr;
  }
};

}  // namespace tarsil::bluez
