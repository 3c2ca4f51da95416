#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tarsil/bluetooth/bluez/detail/BluezObjects.hpp"
#include "tarsil/bluetooth/bluez/detail/BluezPeripheral.hpp"

namespace tarsil::bluez {

/// The peripherals of a central: those that somebody still has, and among them those that are connected, or
/// are to be, which it keeps alive. Main thread.
class BluezPeripherals {
 public:
  using Peripheral = std::shared_ptr<BluezPeripheral>;

  /// The one of this device; made when nobody has it any more.
  Peripheral of(const Device& device, const std::weak_ptr<BluezGattClient>& gatt);
  /// Null when nobody has it.
  Peripheral withAddress(const std::string& address) const;
  /// Null when it is none of these.
  Peripheral own(const std::shared_ptr<BluetoothPeripheral>& peripheral) const;

  void hold(const Peripheral& peripheral) { held_.insert(peripheral); }
  void release(const Peripheral& peripheral) { held_.erase(peripheral); }
  bool holds(const Peripheral& peripheral) const { return held_.contains(peripheral); }
  /// The one that is held and that BlueZ keeps at this path, or null.
  Peripheral heldAt(const std::string& path) const;
  /// A copy: whoever is called from a loop over it may hold and release others.
  std::vector<Peripheral> held() const { return {held_.begin(), held_.end()}; }

 private:
  std::map<std::string, std::weak_ptr<BluezPeripheral>> byAddress_;
  std::set<Peripheral> held_;
};

}  // namespace tarsil::bluez
