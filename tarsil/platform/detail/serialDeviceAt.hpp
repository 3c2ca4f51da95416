#pragma once

#include <string>

#include "tarsil/platform/SerialDevice.hpp"

namespace tarsil::detail {

/// A device that is opened at `path` as the system's own are, call-out and dial-in alike. The name's trailing
/// digits are its suffix.
SerialDevice serialDeviceAt(std::string path, std::string terminalName);

}  // namespace tarsil::detail
