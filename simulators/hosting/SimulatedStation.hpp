#pragma once

#include <memory>
#include <string>
#include <vector>

#include "simulators/SimulatedDevice.hpp"
#include "simulators/hosting/InProcessHost.hpp"
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
  SimulatedDevice& add(const std::string& model, const std::string& terminalName);
  const Patient& patient() const { return patient_; }

 private:
  struct Place {
    std::unique_ptr<SimulatedDevice> device;
    std::unique_ptr<InProcessHost> host;
  };

  Patient patient_;
  std::vector<Place> places_;
  std::shared_ptr<Timer> body_;
};

}  // namespace tarsil::simulators
