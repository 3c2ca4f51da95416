#pragma once

#include <string>

#include "simulators/SimulatedDevice.hpp"

namespace tarsil::simulators {

/// An order to a simulated device: "silence on", "silence off", "noise on", "noise off", "drop", "refuse
/// CODE", "accept", "effort METS" (of the patient), "press BUTTON", "release emergency", "unheard stop",
/// "unheard go", "status", "history". BUTTON is "start", "stop" or "emergency". Standard output gets a line
/// for "status", and one for each entry of "history" with an empty one after the last. False for an order
/// that it does not understand.
bool obeyDeviceOrder(SimulatedDevice& device, Patient& patient, const std::string& order,
                     const std::string& argument);

}  // namespace tarsil::simulators
