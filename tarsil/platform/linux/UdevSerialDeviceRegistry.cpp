#include "tarsil/platform/linux/UdevSerialDeviceRegistry.hpp"

#include <utility>

#include "tarsil/platform/SystemPlatform.hpp"
#include "tarsil/platform/linux/UdevWatch.hpp"
#include "tarsil/platform/linux/udevScan.hpp"

namespace tarsil {

SerialDeviceRegistry::Devices UdevSerialDeviceRegistry::devices() {
  Devices devices;
  const UdevContext context(udev_new());
  if (!context) return devices;
  for (auto& port : scanSerialPorts(context.get())) devices.push_back(std::move(port.device));
  return devices;
}

Observation UdevSerialDeviceRegistry::watch(Watcher watcher) {
  auto watch = UdevWatch::begin(std::move(watcher));
  if (!watch) return {};
  return Observation([watch = std::move(watch)] { watch->end(); });
}

std::shared_ptr<SerialDeviceRegistry> systemSerialDeviceRegistry() {
  static const auto registry = std::make_shared<UdevSerialDeviceRegistry>();
  return registry;
}

}  // namespace tarsil
