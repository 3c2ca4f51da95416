#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tarsil/bluetooth/BluetoothService.hpp"
#include "tarsil/bluetooth/bluez/detail/BluezCharacteristic.hpp"

namespace tarsil::bluez {

/// A service of a connected peripheral.
class BluezService final : public BluetoothService {
 public:
  BluezService(std::string objectPath, std::string UUID)
      : path(std::move(objectPath)), UUID_(std::move(UUID)) {}

  std::string UUID() const override { return UUID_; }
  std::vector<std::shared_ptr<BluetoothCharacteristic>> characteristics() const override {
    if (!discovered) return {};
    return {table.begin(), table.end()};
  }

  const std::string path;
  std::vector<std::shared_ptr<BluezCharacteristic>> table;
  /// Whether the characteristics have been asked for: they are not shown before.
  bool discovered = false;

 private:
  std::string UUID_;
};

}  // namespace tarsil::bluez
