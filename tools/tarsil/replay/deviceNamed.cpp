#include "tools/tarsil/replay/deviceNamed.hpp"

#include <algorithm>
#include <functional>
#include <utility>

#include "tarsil/core/KivBicycle.hpp"
#include "tarsil/drivers/ergometer/ErgolineP10.hpp"
#include "tarsil/drivers/ergometer/ErgometricsP3.hpp"
#include "tarsil/drivers/ergometer/ErgosanaP10.hpp"
#include "tarsil/drivers/ergometer/LodeErgometer38K4.hpp"
#include "tarsil/drivers/treadmill/LodeOEMTreadmill.hpp"
#include "tarsil/drivers/treadmill/LodeTreadmill.hpp"
#include "tarsil/drivers/treadmill/TM_400V2.hpp"
#include "tarsil/drivers/treadmill/TrackMaster.hpp"
#include "tarsil/drivers/vitals/BPDevice.hpp"
#include "tarsil/drivers/vitals/MEDXINGPort.hpp"
#include "tarsil/drivers/vitals/MEDXINGSpO2.hpp"
#include "tarsil/drivers/vitals/SpO2Device.hpp"
#include "tarsil/station/standardCatalogue.hpp"

namespace tarsil::cli {
namespace {

using Device = std::shared_ptr<KivStressDevice>;

/// One new device of every model that the catalogue holds.
std::vector<Device> catalogueDevices() {
  const auto catalogue = standardCatalogue();
  auto devices = catalogue.makeExerciseDevices(StressDeviceType::Treadmill);
  const auto add = [&devices](const std::vector<Device>& more) {
    devices.insert(devices.end(), more.begin(), more.end());
  };
  add(catalogue.makeExerciseDevices(StressDeviceType::Ergometer));
  add(catalogue.makeOximeters());
  add({catalogue.bloodPressureMonitor.makeDevice()});
  return devices;
}

template <class Driver>
Device fromCatalogue() {
  for (auto& device : catalogueDevices()) {
    if (std::dynamic_pointer_cast<Driver>(device)) return device;
  }
  return nullptr;
}

using NamedFactory = std::pair<const char*, std::function<Device()>>;

/// The driver classes, and what people call the two models that the catalogue has no name for.
const std::vector<NamedFactory>& classes() {
  static const std::vector<NamedFactory> all{
      {"TM_400V2", fromCatalogue<TM_400V2>},
      {"LodeOEMTreadmill", fromCatalogue<LodeOEMTreadmill>},
      {"LodeTreadmill", fromCatalogue<LodeTreadmill>},
      {"TrackMaster", fromCatalogue<TrackMaster>},
      {"KivBicycle", fromCatalogue<KivBicycle>},
      {"LodeErgometer38K4", fromCatalogue<LodeErgometer38K4>},
      {"ErgolineP10", fromCatalogue<ErgolineP10>},
      {"ErgosanaP10", fromCatalogue<ErgosanaP10>},
      {"ErgometricsP3", fromCatalogue<ErgometricsP3>},
      {"BPDevice", fromCatalogue<BPDevice>},
      {"MEDXINGPort", fromCatalogue<MEDXINGPort>},
      {"KivStressDevice", [] { return std::make_shared<KivStressDevice>(); }},
      {"MEDXINGSpO2", [] { return std::make_shared<MEDXINGSpO2>(); }},
      {"Tango", fromCatalogue<BPDevice>},
      {"MEDXING-SpO2", [] { return std::make_shared<MEDXINGSpO2>(); }},
      {"SpO2Device",
       [] {
         return std::make_shared<SpO2Device>(SpO2DeviceSettings{
             .SpO2 = "SpO2Device", .baud = 9600, .databits = 8, .stopbits = 1, .parity = 0});
       }},
  };
  return all;
}

}  // namespace

std::shared_ptr<KivStressDevice> deviceNamed(const std::string& name) {
  for (const auto& [className, make] : classes()) {
    if (name == className) return make();
  }
  for (auto& device : catalogueDevices()) {
    if (device->name == name) return device;
  }
  return nullptr;
}

std::vector<std::string> deviceNames() {
  std::vector<std::string> names;
  for (const auto& [className, make] : classes()) names.emplace_back(className);
  for (const auto& device : catalogueDevices()) {
    const bool isNew = device->name && std::find(names.begin(), names.end(), *device->name) == names.end();
    if (isNew) names.push_back(*device->name);
  }
  return names;
}

}  // namespace tarsil::cli
