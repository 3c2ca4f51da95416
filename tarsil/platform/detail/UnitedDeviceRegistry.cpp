#include "tarsil/platform/detail/UnitedDeviceRegistry.hpp"

#include <utility>

namespace tarsil::detail {

UnitedDeviceRegistry::UnitedDeviceRegistry(std::vector<std::shared_ptr<SerialDeviceRegistry>> registries)
    : registries_(std::move(registries)) {}

SerialDeviceRegistry::Devices UnitedDeviceRegistry::devices() {
  Devices all;
  for (const auto& registry : registries_) {
    const Devices some = registry->devices();
    all.insert(all.end(), some.begin(), some.end());
  }
  return all;
}

Observation UnitedDeviceRegistry::watch(Watcher watcher) {
  auto watches = std::make_shared<std::vector<Observation>>();
  for (const auto& registry : registries_) watches->push_back(registry->watch(watcher));
  return Observation([watches = std::move(watches)] { watches->clear(); });
}

}  // namespace tarsil::detail
