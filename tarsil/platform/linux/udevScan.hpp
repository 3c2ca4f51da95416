#pragma once

#include <libudev.h>

#include <optional>
#include <vector>

#include "tarsil/platform/linux/FoundDevice.hpp"

namespace tarsil {

/// The serial port that a terminal of the system is; none for a terminal with no hardware behind it: virtual
/// consoles, pseudo-terminals and UARTs that the kernel only keeps a place for. Opens nothing.
std::optional<FoundDevice> serialPortOf(udev_device* terminal);

/// The serial ports present now, by name, numbers in their order: ttyS2, ttyS10, ttyUSB0. Empty where the
/// system tells of no devices.
std::vector<FoundDevice> scanSerialPorts(udev* context);

}  // namespace tarsil
