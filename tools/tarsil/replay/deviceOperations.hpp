#pragma once

#include <string>
#include <vector>

#include "tarsil/core/KivStressDevice.hpp"
#include "tools/tarsil/replay/Operation.hpp"

namespace tarsil::cli {

/// The sixteen operations that every device has, by name.
std::vector<std::string> deviceOperations();

/// Performs the operation on the device; false when it is none of the sixteen.
bool performDeviceOperation(KivStressDevice& device, const Operation& operation);

}  // namespace tarsil::cli
