#pragma once

#include <memory>
#include <optional>

#include "tarsil/bluetooth/BluetoothError.hpp"

namespace tarsil {

class BluetoothCharacteristic;
class BluetoothPeripheral;
class BluetoothService;

/// Hears what one connected peripheral answers. Every call comes on the main thread and none from within a
/// call to the peripheral. Override what you need.
class BluetoothPeripheralDelegate {
 public:
  virtual ~BluetoothPeripheralDelegate() = default;

  /// The answer to `discoverServices`: `peripheral->services()` holds them, unless there is an error.
  virtual void peripheralDidDiscoverServices(const std::shared_ptr<BluetoothPeripheral>& /*peripheral*/,
                                             const std::optional<BluetoothError>& /*error*/) {}
  /// The answer to `discoverCharacteristics`: `service->characteristics()` holds them, unless there is an
  /// error.
  virtual void peripheralDidDiscoverCharacteristicsForService(
      const std::shared_ptr<BluetoothPeripheral>& /*peripheral*/,
      const std::shared_ptr<BluetoothService>& /*service*/, const std::optional<BluetoothError>& /*error*/) {}
  /// The answer to `setNotifyValue`.
  virtual void peripheralDidUpdateNotificationStateForCharacteristic(
      const std::shared_ptr<BluetoothPeripheral>& /*peripheral*/,
      const std::shared_ptr<BluetoothCharacteristic>& /*characteristic*/,
      const std::optional<BluetoothError>& /*error*/) {}
  /// A notification arrived; `characteristic->value()` holds its bytes.
  virtual void peripheralDidUpdateValueForCharacteristic(
      const std::shared_ptr<BluetoothPeripheral>& /*peripheral*/,
      const std::shared_ptr<BluetoothCharacteristic>& /*characteristic*/,
      const std::optional<BluetoothError>& /*error*/) {}
};

}  // namespace tarsil
