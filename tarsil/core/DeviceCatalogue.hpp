#pragma once

#include <memory>
#include <vector>

#include "tarsil/core/KivStressDevice.hpp"
#include "tarsil/core/StressDeviceType.hpp"

namespace tarsil {

/// One model: what a device of it is made from, and how.
template <class Settings>
struct DeviceModel {
  Settings settings;
  std::shared_ptr<KivStressDevice> (*make)(const Settings& settings);

  std::shared_ptr<KivStressDevice> makeDevice() const { return make(settings); }
};

/// A model whose driver class is `Device`.
template <class Device, class Settings>
DeviceModel<Settings> modelOf(Settings settings) {
  return {std::move(settings), [](const Settings& values) -> std::shared_ptr<KivStressDevice> {
            return std::make_shared<Device>(values);
          }};
}

/// The models that a manager offers, in the order in which it lists them.
struct DeviceCatalogue {
  std::vector<DeviceModel<ExerciseDeviceSettings>> treadmills;
  std::vector<DeviceModel<ExerciseDeviceSettings>> ergometers;
  std::vector<DeviceModel<SpO2DeviceSettings>> oximeters;
  DeviceModel<BPDeviceSettings> bloodPressureMonitor;

  /// A new device of every model.
  std::vector<std::shared_ptr<KivStressDevice>> makeExerciseDevices(StressDeviceType type) const;
  std::vector<std::shared_ptr<KivStressDevice>> makeOximeters() const;
};

}  // namespace tarsil
