#pragma once

#include <libudev.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/platform/SerialDevice.hpp"

namespace tarsil {

/// Gives a libudev object back.
struct UdevRelease {
  void operator()(udev* context) const { udev_unref(context); }
  void operator()(udev_device* device) const { udev_device_unref(device); }
  void operator()(udev_monitor* monitor) const { udev_monitor_unref(monitor); }
};

/// libudev's objects belong to one thread at a time; each null where the system could not give one.
using UdevContext = std::unique_ptr<udev, UdevRelease>;
using UdevDevice = std::unique_ptr<udev_device, UdevRelease>;
using UdevMonitor = std::unique_ptr<udev_monitor, UdevRelease>;

/// A device with the name that the kernel calls it by when it comes and goes: its folder under /sys.
struct FoundDevice {
  std::string systemPath;
  std::shared_ptr<const SerialDevice> device;
};

/// The serial port that a terminal of the system is; none for a terminal with no hardware behind it: virtual
/// consoles, pseudo-terminals and UARTs that the kernel only keeps a place for. Opens nothing.
std::optional<FoundDevice> serialPortOf(udev_device* terminal);

/// The serial ports present now, by name, numbers in their order: ttyS2, ttyS10, ttyUSB0. Empty where the
/// system tells of no devices.
std::vector<FoundDevice> scanSerialPorts(udev* context);

/// Orders names by their characters and the numbers in them by their value: "ttyS2" before "ttyS10".
bool comesBefore(std::string_view left, std::string_view right);

}  // namespace tarsil
