#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tarsil/platform/SerialDeviceRegistry.hpp"
#include "tarsil/platform/linux/udevScan.hpp"

namespace tarsil {

/// The devices that a watcher knows of, as they were when they arrived: of one that is gone, the system tells
/// nothing any more.
class KnownDevices {
 public:
  /// What the watcher has not heard of yet: first what went, then what came.
  struct News {
    SerialDeviceRegistry::Devices removed;
    SerialDeviceRegistry::Devices arrived;
  };

  explicit KnownDevices(std::vector<FoundDevice> devices) : devices_(std::move(devices)) {}

  /// No news when the device is known. Another one in a known one's place: that one went unheard.
  News add(FoundDevice device);
  News remove(const std::string& systemPath);
  /// Puts all that is present now in the place of what is known.
  News replace(const std::vector<FoundDevice>& present);

 private:
  std::vector<FoundDevice> devices_;
};

}  // namespace tarsil
