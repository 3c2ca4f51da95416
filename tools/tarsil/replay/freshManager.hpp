#pragma once

#include "tarsil/core/StressECGDeviceManager.hpp"

namespace tarsil::cli {

/// The shared manager with every field as after its construction.
StressECGDeviceManager& freshManager();

}  // namespace tarsil::cli
