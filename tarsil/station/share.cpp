// The one place that knows both the facade and the drivers.

#include <memory>
#include <utility>

#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/station/standardCatalogue.hpp"

namespace tarsil {
namespace {

std::shared_ptr<StressECGDeviceManager>& sharedManager() {
  // Never destroyed: drivers and ports of other static objects may still reach it while the process ends.
  static auto& manager = *new std::shared_ptr<StressECGDeviceManager>;
  return manager;
}

}  // namespace

StressECGDeviceManager& StressECGDeviceManager::share() {
  auto& manager = sharedManager();
  if (!manager) manager = std::make_shared<StressECGDeviceManager>(standardCatalogue());
  return *manager;
}

std::shared_ptr<StressECGDeviceManager> StressECGDeviceManager::exchangeShared(
    std::shared_ptr<StressECGDeviceManager> manager) {
  return std::exchange(sharedManager(), std::move(manager));
}

}  // namespace tarsil
