#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "tarsil/core/DeviceModel.hpp"
#include "tarsil/core/StressDeviceType.hpp"

namespace tarsil {

/// The models that a manager offers, in the order in which it lists them. Any list may be empty; the
/// blood-pressure monitor is always there. Reading it: any thread.
struct DeviceCatalogue {
  std::vector<DeviceModel> treadmills;
  std::vector<DeviceModel> ergometers;
  std::vector<DeviceModel> oximeters;
  DeviceModel bloodPressureMonitor;
  /// Oximeters that no manager offers, because they have no port: the host makes them, and their radio.
  std::vector<DeviceModel> wirelessOximeters = {};

  /// Every model: exercise devices, the monitor, then oximeters.
  std::vector<DeviceModel> models() const;
  /// The model with that name, to the letter; none when there is none, the first one when there are several.
  std::optional<DeviceModel> modelNamed(std::string_view name) const;

  /// A new device of every model of that kind, in the catalogue's order. Main thread.
  std::vector<std::shared_ptr<KivStressDevice>> makeExerciseDevices(StressDeviceType type) const;
  /// A new device of every oximeter with a port, in the catalogue's order. Main thread.
  std::vector<std::shared_ptr<KivStressDevice>> makeOximeters() const;
};

}  // namespace tarsil
