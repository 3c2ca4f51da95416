#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/bluetooth/BluetoothError.hpp"

namespace tarsil {

class BluetoothCentral;
class BluetoothPeripheral;

/// What a peripheral said about itself when it was discovered.
struct BluetoothAdvertisement {
  std::optional<std::string> localName;
  /// As `bluetoothUUIDText` writes them.
  std::vector<std::string> serviceUUIDs;
};

/// Hears what the central finds and what becomes of its connections. Every call comes on the main thread and
/// none from within a call to the central. Override what you need.
class BluetoothCentralDelegate {
 public:
  virtual ~BluetoothCentralDelegate() = default;

  /// `central.state()` changed. A new delegate is told the state as soon as it is known.
  virtual void centralManagerDidUpdateState(BluetoothCentral& /*central*/) {}
  /// A peripheral was seen: once a scan, and again in the same scan when its name becomes known or changes.
  /// `RSSI` is the strength of its signal in dBm, none when the system does not say.
  virtual void centralManagerDidDiscoverPeripheral(BluetoothCentral& /*central*/,
                                                   const std::shared_ptr<BluetoothPeripheral>& /*peripheral*/,
                                                   const BluetoothAdvertisement& /*advertisementData*/,
                                                   std::optional<int> /*RSSI*/) {}
  /// The peripheral is connected; its services can be asked for.
  virtual void centralManagerDidConnectPeripheral(
      BluetoothCentral& /*central*/, const std::shared_ptr<BluetoothPeripheral>& /*peripheral*/) {}
  /// A connection attempt ended without a connection. Nothing is tried again by itself.
  virtual void centralManagerDidFailToConnectPeripheral(
      BluetoothCentral& /*central*/, const std::shared_ptr<BluetoothPeripheral>& /*peripheral*/,
      const std::optional<BluetoothError>& /*error*/) {}
  /// A connection ended; no error when `cancelPeripheralConnection` asked for it. Its services,
  /// characteristics and notifications are gone.
  virtual void centralManagerDidDisconnectPeripheral(
      BluetoothCentral& /*central*/, const std::shared_ptr<BluetoothPeripheral>& /*peripheral*/,
      const std::optional<BluetoothError>& /*error*/) {}
};

}  // namespace tarsil
