#pragma once

#include <libudev.h>

#include <memory>

namespace tarsil {

/// Gives a libudev object back.
struct UdevRelease {
  void operator()(udev* context) const { udev_unref(context); }
  void operator()(udev_device* device) const { udev_device_unref(device); }
  void operator()(udev_enumerate* enumeration) const { udev_enumerate_unref(enumeration); }
  void operator()(udev_monitor* monitor) const { udev_monitor_unref(monitor); }
};

/// libudev's objects belong to one thread at a time; each null where the system could not give one.
using UdevContext = std::unique_ptr<udev, UdevRelease>;
using UdevDevice = std::unique_ptr<udev_device, UdevRelease>;
using UdevEnumeration = std::unique_ptr<udev_enumerate, UdevRelease>;
using UdevMonitor = std::unique_ptr<udev_monitor, UdevRelease>;

}  // namespace tarsil
