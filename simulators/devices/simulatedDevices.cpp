#include "simulators/devices/simulatedDevices.hpp"

#include <array>

#include "simulators/devices/SimulatedErgometricsP3.hpp"
#include "simulators/devices/SimulatedLodeErgometer.hpp"
#include "simulators/devices/SimulatedLodeOEMTreadmill.hpp"
#include "simulators/devices/SimulatedLodeTreadmill.hpp"
#include "simulators/devices/SimulatedMEDXINGOximeter.hpp"
#include "simulators/devices/SimulatedP10Ergometer.hpp"
#include "simulators/devices/SimulatedTM400.hpp"
#include "simulators/devices/SimulatedTango.hpp"
#include "simulators/devices/SimulatedTrackMaster.hpp"
#include "simulators/devices/SimulatedUndrivenBicycle.hpp"

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
    Entry{"TM-400V2", &make<SimulatedTM400>},
    Entry{"LodeOEMTreadmill", &make<SimulatedLodeOEMTreadmill>},
    Entry{"LodeTreadmill", &make<SimulatedLodeTreadmill>},
    Entry{"TrackMaster", &make<SimulatedTrackMaster>},
    Entry{"KivBicycle", &make<SimulatedUndrivenBicycle>},
    Entry{"Ergometer38K4", &make<SimulatedLodeErgometer>},
    Entry{"ErgolineK2.4P10", &make<SimulatedErgolineP10>},
    Entry{"ErgosanaK4.8P10", &make<SimulatedErgosanaP10>},
    Entry{"ErgometricsK2.4P3", &make<SimulatedErgometricsP3>},
    Entry{"Tango", &make<SimulatedTango>},
    Entry{"MEDXINGPort", &make<SimulatedMEDXINGOximeter>},
};

}  // namespace

std::vector<std::string> simulatedModels() {
  std::vector<std::string> models;
  models.reserve(entries.size());
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
