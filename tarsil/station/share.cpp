// The one place that knows both the facade and the drivers.

#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/station/standardCatalogue.hpp"

namespace tarsil {

StressECGDeviceManager& StressECGDeviceManager::share() {
  // Never destroyed: drivers and ports of other static objects may still reach it while the process ends.
  static auto* const manager = new std::shared_ptr<StressECGDeviceManager>(
      std::make_shared<StressECGDeviceManager>(standardCatalogue()));
  return **manager;
}

}  // namespace tarsil
