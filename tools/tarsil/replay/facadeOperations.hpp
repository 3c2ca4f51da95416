#pragma once

#include "tarsil/core/PortType.hpp"
#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tools/tarsil/replay/Operation.hpp"
#include "tools/tarsil/replay/SeenDevices.hpp"

namespace tarsil::cli {

/// What an operation of the facade gave: nothing for one that returns nothing.
struct FacadeResult {
  bool isKnown = false;
  std::optional<Json> returned;
};

/// Performs the facade's operation of that name; devices that it hands out are numbered by `seen`.
FacadeResult performFacadeOperation(StressECGDeviceManager& manager, SeenDevices& seen,
                                    const Operation& operation);

/// "device", "BP", "SpO2" or any raw number.
PortType roleOf(const Value& value);

}  // namespace tarsil::cli
