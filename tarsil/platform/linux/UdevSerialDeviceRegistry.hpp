#pragma once

#include "tarsil/platform/SerialDeviceRegistry.hpp"

namespace tarsil {

/// The serial ports that the Linux kernel knows: by name, numbers in their order. What USB adapters say of
/// themselves is read when they arrive. Empty, and without news, where a container hides the system's
/// devices. Any thread.
class UdevSerialDeviceRegistry final : public SerialDeviceRegistry {
 public:
  Devices devices() override;
  [[nodiscard]] Observation watch(Watcher watcher) override;
};

}  // namespace tarsil
