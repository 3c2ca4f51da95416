#pragma once

#include <memory>
#include <string>

#include "tarsil/platform/SerialDevice.hpp"

namespace tarsil::doubles {

/// The registry entry of a device at "/dev/" + `terminalName` that is opened through `terminal`.
std::shared_ptr<const SerialDevice> scriptedDevice(const std::string& terminalName,
                                                   std::shared_ptr<Terminal> terminal);

}  // namespace tarsil::doubles
