#pragma once

#include "simulators/SimulatedDevice.hpp"
#include "simulators/physics/Pedals.hpp"

namespace tarsil::simulators {

/// The truth of an ergometer with these pedals.
inline Truth truthOf(const Pedals& pedals) {
  return {.exercise = Truth::Exercise::ergometer,
          .actual = {.power = pedals.power()},
          .asked = {.power = pedals.wantedPower()},
          .isRunning = pedals.isRunning()};
}

/// Presses a button of an ergometer with these pedals; it has start and stop.
inline bool pressOn(Pedals& pedals, SimulatedDevice::Button button) {
  if (button == SimulatedDevice::Button::emergency) return false;
  if (button == SimulatedDevice::Button::start) pedals.pressStart();
  if (button == SimulatedDevice::Button::stop) pedals.pressStop();
  return true;
}

}  // namespace tarsil::simulators
