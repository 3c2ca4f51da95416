#pragma once

#include <memory>

#include "tarsil/platform/SerialDeviceRegistry.hpp"
#include "tools/tarsil/run/Traffic.hpp"

namespace tarsil::cli {

/// Another registry, whose devices are opened through recording terminals. A device has the same entry here
/// for as long as this object lives. Any thread.
class RecordingRegistry final : public SerialDeviceRegistry {
 public:
  RecordingRegistry(std::shared_ptr<SerialDeviceRegistry> registry, std::shared_ptr<Traffic> traffic);
  ~RecordingRegistry() override;

  Devices devices() override;
  [[nodiscard]] Observation watch(Watcher watcher) override;

 private:
  /// Shared with the watchers, which may outlive the registry.
  struct Entries;

  const std::shared_ptr<SerialDeviceRegistry> registry_;
  const std::shared_ptr<Entries> entries_;
};

}  // namespace tarsil::cli
