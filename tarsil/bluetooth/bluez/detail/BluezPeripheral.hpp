#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tarsil/bluetooth/BluetoothPeripheral.hpp"
#include "tarsil/bluetooth/bluez/detail/BluezCharacteristic.hpp"
#include "tarsil/bluetooth/bluez/detail/BluezService.hpp"

namespace tarsil::bluez {

class BluezGattClient;

/// A remote device. It hands what is asked of it to its central's part for that; the central keeps it up to
/// date.
class BluezPeripheral final : public BluetoothPeripheral,
                              public std::enable_shared_from_this<BluezPeripheral> {
 public:
  BluezPeripheral(std::weak_ptr<BluezGattClient> gatt, std::string address)
      : gatt_(std::move(gatt)), address_(std::move(address)) {}

  std::string identifier() const override { return address_; }
  std::optional<std::string> name() const override { return lastName; }
  BluetoothPeripheralState state() const override { return connection; }
  std::vector<std::shared_ptr<BluetoothService>> services() const override;
  void setDelegate(std::weak_ptr<BluetoothPeripheralDelegate> delegate) override {
    delegate_ = std::move(delegate);
  }
  void discoverServices() override;
  void discoverCharacteristics(const std::shared_ptr<BluetoothService>& service) override;
  void setNotifyValue(bool enabled, const std::shared_ptr<BluetoothCharacteristic>& characteristic) override;

  std::shared_ptr<BluetoothPeripheralDelegate> delegate() const { return delegate_.lock(); }
  /// Null when it is none of this peripheral's.
  std::shared_ptr<BluezService> find(const std::shared_ptr<BluetoothService>& service) const;
  std::shared_ptr<BluezCharacteristic> find(
      const std::shared_ptr<BluetoothCharacteristic>& characteristic) const;
  std::shared_ptr<BluezCharacteristic> characteristicAt(const std::string& objectPath) const;

  /// Forgets what belonged to a connection.
  void endConnection();

  std::optional<std::string> lastName;
  BluetoothPeripheralState connection = BluetoothPeripheralState::disconnected;
  /// Where BlueZ keeps it; empty while BlueZ does not know it.
  std::string path;
  /// Asked to connect again while a connection ends: done when the end has been told.
  bool wantedAgain = false;
  /// BlueZ has been asked to connect and has not answered yet.
  bool attempting = false;
  /// `discoverServices` waits for its answer.
  bool awaitsServices = false;
  /// Counts connections and attempts: an answer that belongs to an earlier one is out of date.
  std::uint64_t epoch = 0;
  /// Why the connection is about to be reported as ended, where BlueZ says so.
  std::optional<std::string> reasonName;
  std::string reasonText;
  std::vector<std::shared_ptr<BluezService>> table;

 private:
  /// Lives as long as its central.
  std::weak_ptr<BluezGattClient> gatt_;
  std::string address_;
  std::weak_ptr<BluetoothPeripheralDelegate> delegate_;
};

}  // namespace tarsil::bluez
