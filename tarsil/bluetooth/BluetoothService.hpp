#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tarsil/bluetooth/BluetoothCharacteristic.hpp"

namespace tarsil {

/// A service of a peripheral. Main thread.
class BluetoothService {
 public:
  virtual ~BluetoothService() = default;

  /// As `bluetoothUUIDText` writes it: "FFB0" for a 16-bit UUID.
  virtual std::string UUID() const = 0;
  /// Empty until `peripheralDidDiscoverCharacteristicsForService`.
  virtual std::vector<std::shared_ptr<BluetoothCharacteristic>> characteristics() const = 0;
};

}  // namespace tarsil
