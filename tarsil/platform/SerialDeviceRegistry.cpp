#include "tarsil/platform/SerialDeviceRegistry.hpp"

#include <algorithm>
#include <utility>

#include "tarsil/platform/SystemPlatform.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/platform/detail/UnitedDeviceRegistry.hpp"

namespace tarsil {
namespace {

std::shared_ptr<SerialDeviceRegistry> defaultRegistry() {
  using Registries = std::vector<std::shared_ptr<SerialDeviceRegistry>>;
  static const auto registry = std::make_shared<detail::UnitedDeviceRegistry>(
      Registries{systemSerialDeviceRegistry(), VirtualDeviceRegistry::shared()});
  return registry;
}

// Null: the default.
std::shared_ptr<SerialDeviceRegistry>& replacement() {
  static std::shared_ptr<SerialDeviceRegistry> registry;
  return registry;
}

}  // namespace

std::shared_ptr<const SerialDevice> SerialDeviceRegistry::deviceFromBSDPath(std::string_view path) {
  if (path.empty()) return nullptr;
  const Devices present = devices();
  const auto found = std::find_if(present.begin(), present.end(), [=](const auto& device) {
    return device->calloutPath == path || device->dialinPath == path;
  });
  return found == present.end() ? nullptr : *found;
}

std::shared_ptr<SerialDeviceRegistry> SerialDeviceRegistry::shared() {
  return replacement() ? replacement() : defaultRegistry();
}

std::shared_ptr<SerialDeviceRegistry> SerialDeviceRegistry::exchangeShared(
    std::shared_ptr<SerialDeviceRegistry> registry) {
  return std::exchange(replacement(), std::move(registry));
}

}  // namespace tarsil
