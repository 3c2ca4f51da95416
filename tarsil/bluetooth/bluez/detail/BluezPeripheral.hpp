#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/bluetooth/BluetoothPeripheral.hpp"

namespace tarsil::bluez {

class BluezCentral;

/// A characteristic of a connected peripheral; the central keeps it up to date.
class BluezCharacteristic final : public BluetoothCharacteristic {
 public:
  BluezCharacteristic(std::string objectPath, std::string UUID)
      : path(std::move(objectPath)), UUID_(std::move(UUID)) {}

  std::string UUID() const override { return UUID_; }
  std::optional<Bytes> value() const override { return lastValue; }
  bool isNotifying() const override { return notifying; }

  const std::string path;
  std::optional<Bytes> lastValue;
  /// Asked for by `setNotifyValue`; the first value may come before BlueZ's confirmation.
  bool wantsNotifications = false;
  bool notifying = false;

 private:
  std::string UUID_;
};

/// A service of a connected peripheral.
class BluezService final : public BluetoothService {
 public:
  BluezService(std::string objectPath, std::string UUID)
      : path(std::move(objectPath)), UUID_(std::move(UUID)) {}

  std::string UUID() const override { return UUID_; }
  std::vector<std::shared_ptr<BluetoothCharacteristic>> characteristics() const override;

  const std::string path;
  std::vector<std::shared_ptr<BluezCharacteristic>> table;
  /// Whether the characteristics have been asked for: they are not shown before.
  bool discovered = false;

 private:
  std::string UUID_;
};

/// A remote device. It hands what is asked of it to its central, which keeps it up to date.
class BluezPeripheral final : public BluetoothPeripheral,
                              public std::enable_shared_from_this<BluezPeripheral> {
 public:
  BluezPeripheral(std::weak_ptr<BluezCentral> central, std::string address)
      : central_(std::move(central)), address_(std::move(address)) {}

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
  std::weak_ptr<BluezCentral> central_;
  std::string address_;
  std::weak_ptr<BluetoothPeripheralDelegate> delegate_;
};

}  // namespace tarsil::bluez
