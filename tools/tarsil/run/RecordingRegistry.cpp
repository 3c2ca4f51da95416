#include "tools/tarsil/run/RecordingRegistry.hpp"

#include <map>
#include <mutex>
#include <utility>

#include "tools/tarsil/run/RecordingTerminal.hpp"

namespace tarsil::cli {
namespace {

using Device = std::shared_ptr<const SerialDevice>;

Device recorded(const SerialDevice& original, std::shared_ptr<Traffic> traffic) {
  auto device = std::make_shared<SerialDevice>(original);
  device->terminal = std::make_shared<RecordingTerminal>(
      original.terminal, original.terminalName.value_or(original.calloutPath.value_or("")),
      std::move(traffic));
  return device;
}

}  // namespace

struct RecordingRegistry::Entries {
  explicit Entries(std::shared_ptr<Traffic> sink) : traffic(std::move(sink)) {}

  Devices of(const Devices& originals) {
    const std::lock_guard lock(mutex);
    Devices devices;
    for (const Device& original : originals) {
      Device& device = known[original];
      if (!device) device = recorded(*original, traffic);
      devices.push_back(device);
    }
    return devices;
  }

  const std::shared_ptr<Traffic> traffic;
  std::mutex mutex;
  std::map<Device, Device> known;
};

RecordingRegistry::RecordingRegistry(std::shared_ptr<SerialDeviceRegistry> registry,
                                     std::shared_ptr<Traffic> traffic)
    : registry_(std::move(registry)), entries_(std::make_shared<Entries>(std::move(traffic))) {}

RecordingRegistry::~RecordingRegistry() = default;

SerialDeviceRegistry::Devices RecordingRegistry::devices() {
  return entries_->of(registry_->devices());
}

Observation RecordingRegistry::watch(Watcher watcher) {
  const auto watching = std::make_shared<const Watcher>(std::move(watcher));
  return registry_->watch({.arrived =
                               [entries = entries_, watching](const Devices& devices) {
                                 if (watching->arrived) watching->arrived(entries->of(devices));
                               },
                           .removed =
                               [entries = entries_, watching](const Devices& devices) {
                                 if (watching->removed) watching->removed(entries->of(devices));
                               }});
}

}  // namespace tarsil::cli
