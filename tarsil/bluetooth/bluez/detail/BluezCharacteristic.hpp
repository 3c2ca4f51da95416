#pragma once

#include <optional>
#include <string>
#include <utility>

#include "tarsil/bluetooth/BluetoothCharacteristic.hpp"

namespace tarsil::bluez {

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

}  // namespace tarsil::bluez
