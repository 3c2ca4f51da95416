#include "simulators/hosting/SimulatedStation.hpp"

#include <chrono>
#include <stdexcept>
#include <utility>

#include "simulators/devices/simulatedDevices.hpp"

namespace tarsil::simulators {
namespace {

using namespace std::chrono_literals;

constexpr Duration heartbeat = 100ms;

}  // namespace

SimulatedStation::SimulatedStation()
    : body_(Timer::scheduled(heartbeat, true, [this](Timer&) { patient_.advance(heartbeat); })) {}

SimulatedStation::~SimulatedStation() {
  body_->invalidate();
}

SimulatedDevice& SimulatedStation::add(const std::string& model, const std::string& terminalName) {
  auto device = makeSimulatedDevice(model, patient_);
  if (!device) throw std::invalid_argument("no simulated device for the model " + model);
  auto host = std::make_unique<InProcessHost>(*device, terminalName);
  SimulatedDevice& added = *device;
  places_.push_back({std::move(device), std::move(host)});
  return added;
}

}  // namespace tarsil::simulators
