#pragma once

#include <memory>
#include <optional>
#include <string>

#include "tarsil/platform/Terminal.hpp"

namespace tarsil {

/// What a USB adapter says of itself; a text that it does not give is empty.
struct UsbIdentity {
  /// Four lower-case hexadecimal digits each.
  std::string vendorId;
  std::string productId;
  std::string serialNumber;
  std::string manufacturer;
  std::string product;

  bool operator==(const UsbIdentity&) const = default;
};

/// A serial device of the machine, or a virtual one that the program added: the registry's entry for it. A
/// property that the device lacks is none.
struct SerialDevice {
  /// Path to open it by, e.g. "/dev/ttyUSB0".
  std::optional<std::string> calloutPath;
  /// Path that waits for a call; the same as `calloutPath` where the system has only one.
  std::optional<std::string> dialinPath;
  /// Terminal name that people read, e.g. "ttyUSB0"; consists of base name and suffix.
  std::optional<std::string> terminalName;
  std::optional<std::string> baseName;
  std::optional<std::string> suffix;
  std::optional<std::string> clientType;
  /// None for a device that is not on USB.
  std::optional<UsbIdentity> usb;
  /// A path that stays the same when the device comes back under another number, and tells adapters of one
  /// model apart: remember this one, not the name. None where the system has none.
  std::optional<std::string> stablePath;
  /// Through which the device is opened. Never null.
  std::shared_ptr<Terminal> terminal;
};

}  // namespace tarsil
