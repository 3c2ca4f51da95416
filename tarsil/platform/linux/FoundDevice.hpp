#pragma once

#include <memory>
#include <string>

#include "tarsil/platform/SerialDevice.hpp"

namespace tarsil {

/// A device with the name that the kernel calls it by when it comes and goes: its folder under /sys.
struct FoundDevice {
  std::string systemPath;
  std::shared_ptr<const SerialDevice> device;
};

}  // namespace tarsil
