#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "simulators/SimulatedDevice.hpp"

namespace tarsil::simulators {

/// The models that there is a simulated device for, by their catalogue names ("Tango" for the blood-pressure
/// monitor, which has none).
std::vector<std::string> simulatedModels();

/// Null for a model that is not simulated. `patient` must outlive the device.
std::unique_ptr<SimulatedDevice> makeSimulatedDevice(std::string_view model, Patient& patient);

}  // namespace tarsil::simulators
