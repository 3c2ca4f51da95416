#pragma once

#include <memory>
#include <string>
#include <vector>

#include "simulators/SimulatedDevice.hpp"
#include "simulators/lines/InProcessLine.hpp"
#include "simulators/physics/Patient.hpp"
#include "tarsil/runtime/Timer.hpp"

namespace tarsil::simulators {

/// Simulated devices in one process with one patient on them: the monitors see the effort that the exercise
/// device makes. Main thread.
class SimulatedStation {
 public:
  SimulatedStation();
  ~SimulatedStation();
  SimulatedStation(const SimulatedStation&) = delete;
  SimulatedStation& operator=(const SimulatedStation&) = delete;

  /// Adds a device of this model as a port with this name. Throws std::invalid_argument for a model that is
  /// not simulated.
  SimulatedDevice& add(const std::string& model, const std::string& terminalName,
                       const CableBehaviour& behaviour = usualCable());
  /// The line to the device that was added under this name. Throws std::invalid_argument when none was.
  InProcessLine& line(const std::string& terminalName);
  const Patient& patient() const { return patient_; }

 private:
  struct Place {
    std::string name;
    std::unique_ptr<SimulatedDevice> device;
    std::unique_ptr<InProcessLine> line;
  };

  Patient patient_;
  std::vector<Place> places_;
  std::shared_ptr<Timer> body_;
};

}  // namespace tarsil::simulators
