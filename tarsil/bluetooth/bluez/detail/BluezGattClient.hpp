#pragma once

#include <memory>
#include <optional>
#include <string>

#include "tarsil/bluetooth/bluez/detail/BluezContext.hpp"
#include "tarsil/bluetooth/bluez/detail/BluezPeripheral.hpp"

namespace tarsil::bluez {

/// Answers what is asked of connected peripherals: their services, characteristics and notifications. Main
/// thread.
class BluezGattClient {
 public:
  using Peripheral = std::shared_ptr<BluezPeripheral>;
  using Characteristic = std::shared_ptr<BluezCharacteristic>;

  explicit BluezGattClient(const BluezContext& context) : context_(context) {}

  void discoverServices(const Peripheral& peripheral);
  void discoverCharacteristics(const Peripheral& peripheral, const std::shared_ptr<BluezService>& service);
  void setNotifyValue(const Peripheral& peripheral, const Characteristic& characteristic, bool enabled);

  /// BlueZ has found all services of a connected peripheral.
  void servicesResolved(const Peripheral& peripheral);
  /// Hands a notification on, where one was asked for.
  void notified(const Peripheral& peripheral, const Characteristic& characteristic, const Bytes& value);

 private:
  void readServices(const Peripheral& peripheral);
  void answerServices(const Peripheral& peripheral, const std::optional<BluetoothError>& error);
  void switchNotifications(const Peripheral& peripheral, const Characteristic& characteristic, bool enabled);
  void notificationsSwitched(const Peripheral& peripheral, const Characteristic& characteristic, bool enabled,
                             const std::optional<BusError>& error);

  const BluezContext& context_;
};

}  // namespace tarsil::bluez
