#include "simulators/devices/simulatedDevices.hpp"

#include <array>

#include "simulators/devices/SimulatedLodeTreadmill.hpp"
#include "simulators/devices/SimulatedTrackMaster.hpp"

namespace tarsil::simulators {
namespace {

struct Entry {
  std::string_view model;
  std::unique_ptr<SimulatedDevice> (*make)(Patient& patient);
};

template <class Device>
std::unique_ptr<SimulatedDevice> make(Patient& patient) {
  return std::make_unique<Device>(patient);
}

constexpr std::array entries{
    Entry{"LodeTreadmill", &make<SimulatedLodeTreadmill>},
    Entry{"TrackMaster", &make<SimulatedTrackMaster>},
};

}  // namespace

std::vector<std::string> simulatedModels() {
  std::vector<std::string> models;
  for (const Entry& entry : entries) models.emplace_back(entry.model);
  return models;
}

std::unique_ptr<SimulatedDevice> makeSimulatedDevice(std::string_view model, Patient& patient) {
  for (const Entry& entry : entries) {
    if (entry.model == model) return entry.make(patient);
  }
  return nullptr;
}

}  // namespace tarsil::simulators
