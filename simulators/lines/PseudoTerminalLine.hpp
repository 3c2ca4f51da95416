#pragma once

#include "simulators/SimulatedDevice.hpp"
#include "simulators/lines/CableBehaviour.hpp"
#include "simulators/lines/CabledDevice.hpp"
#include "simulators/lines/PseudoTerminalEnd.hpp"

namespace tarsil::simulators {

/// Lets a simulated device live on a pseudo-terminal, in the time of the main run loop. Main thread.
class PseudoTerminalLine {
 public:
  /// `device` must outlive the line.
  explicit PseudoTerminalLine(SimulatedDevice& device, const CableBehaviour& behaviour = usualCable())
      : device_(device, behaviour, [this](const Bytes& bytes) { hostEnd_.deliver(bytes); }) {}

  PseudoTerminalEnd& hostEnd() { return hostEnd_; }

 private:
  CabledDevice device_;
  PseudoTerminalEnd hostEnd_{device_.cable()};
};

}  // namespace tarsil::simulators
