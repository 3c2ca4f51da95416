#pragma once

#include <functional>
#include <optional>
#include <ostream>
#include <string>

namespace tarsil::doubles {

/// Something that was asked of a scripted central or of one of its peripherals.
struct BluetoothCall {
  /// "central" or "peripheral"
  std::string receiver;
  /// central: "scan", "stopScan", "connect", "cancelConnection"; peripheral: "setDelegate",
  /// "discoverServices", "discoverCharacteristics", "setNotify", "clearNotify" (notifications switched off)
  std::string name;
  /// The peripheral's identifier; the UUID of the service or the characteristic; none for a scan.
  std::optional<std::string> argument;

  bool operator==(const BluetoothCall&) const = default;

  /// "central connect oximeter-1"
  std::string text() const { return receiver + " " + name + (argument ? " " + *argument : ""); }
  friend std::ostream& operator<<(std::ostream& out, const BluetoothCall& call) { return out << call.text(); }
};

/// Told every call when it is made.
using BluetoothCallObserver = std::function<void(const BluetoothCall&)>;

}  // namespace tarsil::doubles
