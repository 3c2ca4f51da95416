#include "tools/tarsil/devices/catalogueDevices.hpp"

#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/drivers/vitals/MEDXINGSpO2.hpp"
#include "tarsil/station/standardCatalogue.hpp"

namespace tarsil::cli {

std::vector<CatalogueDevice> catalogueDevices() {
  auto& station = StressECGDeviceManager::share();
  std::vector<CatalogueDevice> all;
  const auto add = [&all](const std::string& kind,
                          const std::optional<StressECGDeviceManager::Devices>& devices) {
    for (const auto& device : devices.value()) all.push_back({kind, device});
  };
  for (const auto& kind : station.getDeivceType()) add(kind, station.getDeviceByType(kind));
  // The facade makes the monitor together with the choice of its port, under no name.
  all.push_back({"BP", standardCatalogue().bloodPressureMonitor.makeDevice()});
  add("SpO2", station.getSpO2Devices());
  // The Bluetooth oximeter is made by the host. It is found by the name that it advertises.
  const auto oximeter = std::make_shared<MEDXINGSpO2>();
  oximeter->name = oximeter->peripheralName;
  all.push_back({"SpO2", oximeter});
  return all;
}

}  // namespace tarsil::cli
