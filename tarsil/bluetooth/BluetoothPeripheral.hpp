#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/bluetooth/BluetoothCharacteristic.hpp"
#include "tarsil/bluetooth/BluetoothPeripheralDelegate.hpp"
#include "tarsil/bluetooth/BluetoothService.hpp"

namespace tarsil {

/// `connecting` and `disconnecting` last until the central's delegate is told how it ended.
enum class BluetoothPeripheralState { disconnected, connecting, connected, disconnecting };

/// A remote device that the central has discovered. Main thread; no call waits, every answer comes to the
/// delegate; without a delegate the answers are dropped.
class BluetoothPeripheral {
 public:
  virtual ~BluetoothPeripheral() = default;

  /// Tells this peripheral from every other one of its central; the same device has the same identifier.
  virtual std::string identifier() const = 0;
  /// The name that it advertises, as far as it has been heard.
  virtual std::optional<std::string> name() const = 0;
  virtual BluetoothPeripheralState state() const = 0;
  /// What `discoverServices` found on this connection; empty before that and after the connection is lost.
  virtual std::vector<std::shared_ptr<BluetoothService>> services() const = 0;

  /// Replaces the delegate; the peripheral does not keep it alive.
  virtual void setDelegate(std::weak_ptr<BluetoothPeripheralDelegate> delegate) = 0;

  /// Asks for all services. Answered by `peripheralDidDiscoverServices`, without a connection by the error
  /// `notConnected`.
  virtual void discoverServices() = 0;
  /// Asks for all characteristics of one of `services()`. Answered by
  /// `peripheralDidDiscoverCharacteristicsForService`. Any other service, like one of a connection that is
  /// lost, does nothing.
  virtual void discoverCharacteristics(const std::shared_ptr<BluetoothService>& service) = 0;
  /// Switches the notifications of a characteristic of one of `services()` on or off, for this connection:
  /// they must be asked for anew after a loss. Answered by
  /// `peripheralDidUpdateNotificationStateForCharacteristic`. Any other characteristic, like one of a
  /// connection that is lost, does nothing.
  virtual void setNotifyValue(bool enabled,
                              const std::shared_ptr<BluetoothCharacteristic>& characteristic) = 0;
};

}  // namespace tarsil
