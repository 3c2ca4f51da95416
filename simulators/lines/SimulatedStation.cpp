#include "simulators/lines/SimulatedStation.hpp"

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

SimulatedDevice& SimulatedStation::add(const std::string& model, const std::string& terminalName,
                                       const CableBehaviour& behaviour) {
  auto device = makeSimulatedDevice(model, patient_);
  if (!device) throw std::invalid_argument("no simulated device for the model " + model);
  auto line = std::make_unique<InProcessLine>(*device, terminalName, behaviour);
  places_.push_back({terminalName, std::move(device), std::move(line)});
  return *places_.back().device;
}

InProcessLine& SimulatedStation::line(const std::string& terminalName) {
  for (Place& place : places_) {
    if (place.name == terminalName) return *place.line;
  }
  throw std::invalid_argument("no simulated device was added as " + terminalName);
}

}  // namespace tarsil::simulators
