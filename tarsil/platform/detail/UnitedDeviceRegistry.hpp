#pragma once

#include <memory>
#include <vector>

#include "tarsil/platform/SerialDeviceRegistry.hpp"

namespace tarsil::detail {

/// Several registries as one: the devices of the first, then those of the second, and so on.
class UnitedDeviceRegistry final : public SerialDeviceRegistry {
 public:
  explicit UnitedDeviceRegistry(std::vector<std::shared_ptr<SerialDeviceRegistry>> registries);

  Devices devices() override;
  [[nodiscard]] Observation watch(Watcher watcher) override;

 private:
  const std::vector<std::shared_ptr<SerialDeviceRegistry>> registries_;
};

}  // namespace tarsil::detail
