#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "doubles/BluetoothCall.hpp"
#include "tarsil/bluetooth/BluetoothPeripheral.hpp"

namespace tarsil::doubles {

/// A characteristic that a script made up.
class ScriptedCharacteristic final : public BluetoothCharacteristic {
 public:
  explicit ScriptedCharacteristic(std::string UUID) : UUID_(std::move(UUID)) {}

  std::string UUID() const override { return UUID_; }
  std::optional<Bytes> value() const override { return lastValue; }
  bool isNotifying() const override { return notifying; }

  std::optional<Bytes> lastValue;
  bool notifying = false;

 private:
  std::string UUID_;
};

/// A service that a script made up.
class ScriptedService final : public BluetoothService {
 public:
  explicit ScriptedService(std::string UUID) : UUID_(std::move(UUID)) {}

  std::string UUID() const override { return UUID_; }
  std::vector<std::shared_ptr<BluetoothCharacteristic>> characteristics() const override;

  std::vector<std::shared_ptr<ScriptedCharacteristic>> table;

 private:
  std::string UUID_;
};

/// A peripheral that does nothing by itself: whatever is asked of it goes to the observer, and the script
/// says what it answers. The events below call the delegate at once, on the calling thread; without a
/// delegate they only change what the peripheral holds.
class ScriptedPeripheral final : public BluetoothPeripheral,
                                 public std::enable_shared_from_this<ScriptedPeripheral> {
 public:
  ScriptedPeripheral(std::string identifier, std::optional<std::string> name, BluetoothCallObserver observer)
      : identifier_(std::move(identifier)), name_(std::move(name)), observer_(std::move(observer)) {}

  std::string identifier() const override { return identifier_; }
  std::optional<std::string> name() const override { return name_; }
  BluetoothPeripheralState state() const override { return connectionState; }
  std::vector<std::shared_ptr<BluetoothService>> services() const override;
  void setDelegate(std::weak_ptr<BluetoothPeripheralDelegate> delegate) override;
  void discoverServices() override;
  void discoverCharacteristics(const std::shared_ptr<BluetoothService>& service) override;
  void setNotifyValue(bool enabled, const std::shared_ptr<BluetoothCharacteristic>& characteristic) override;

  /// Its name became known, or changed.
  void rename(std::optional<std::string> name) { name_ = std::move(name); }
  std::shared_ptr<BluetoothPeripheralDelegate> delegate() const { return delegate_.lock(); }
  /// Makes up the services, in this order; those that existed keep their identity and their characteristics.
  void setServices(const std::vector<std::string>& UUIDs);
  /// Makes up the characteristics of the service with this UUID, which is made up as well when it is not
  /// there.
  std::shared_ptr<ScriptedService> setCharacteristics(const std::string& serviceUUID,
                                                      const std::vector<std::string>& UUIDs);
  /// The first characteristic with this UUID in any service; null when there is none.
  std::shared_ptr<ScriptedCharacteristic> characteristic(const std::string& UUID) const;

  /// Answers `discoverServices`, or speaks unasked: `setServices`, then the delegate's call.
  void answerServices(const std::vector<std::string>& UUIDs,
                      const std::optional<BluetoothError>& error = std::nullopt);
  /// Likewise for the characteristics of one service.
  void answerCharacteristics(const std::string& serviceUUID, const std::vector<std::string>& UUIDs,
                             const std::optional<BluetoothError>& error = std::nullopt);
  /// Notifications of this characteristic are on or off now.
  void answerNotificationState(const std::string& characteristicUUID, bool notifying,
                               const std::optional<BluetoothError>& error = std::nullopt);
  /// A value update, with or without a value. A characteristic that nobody discovered is made up for it.
  void notify(const std::string& characteristicUUID, std::optional<Bytes> value,
              const std::optional<BluetoothError>& error = std::nullopt);

  BluetoothPeripheralState connectionState = BluetoothPeripheralState::disconnected;

 private:
  void record(std::string name, std::string argument) const;
  std::shared_ptr<ScriptedService> service(const std::string& UUID) const;

  std::string identifier_;
  std::optional<std::string> name_;
  BluetoothCallObserver observer_;
  std::vector<std::shared_ptr<ScriptedService>> services_;
  std::weak_ptr<BluetoothPeripheralDelegate> delegate_;
};

}  // namespace tarsil::doubles
