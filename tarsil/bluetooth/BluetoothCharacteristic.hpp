#pragma once

#include <optional>
#include <string>

#include "tarsil/support/bytes.hpp"

namespace tarsil {

/// A characteristic of a peripheral's service: one value that can be notified. Main thread.
class BluetoothCharacteristic {
 public:
  virtual ~BluetoothCharacteristic() = default;

  /// As `bluetoothUUIDText` writes it: "FFB2" for a 16-bit UUID.
  virtual std::string UUID() const = 0;
  /// The value last notified; none before the first one.
  virtual std::optional<Bytes> value() const = 0;
  /// Whether the peripheral has confirmed that it sends notifications.
  virtual bool isNotifying() const = 0;
};

}  // namespace tarsil
