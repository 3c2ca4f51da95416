#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "tarsil/core/KivStressDevice.hpp"
#include "tarsil/core/StressDeviceType.hpp"

namespace tarsil {

/// One model: what a device of it is made from, and how. `modelOf` makes one.
template <class Settings>
struct DeviceModel {
  Settings settings;
  /// A reference, so that a model without a way to make its device does not compile.
  std::shared_ptr<KivStressDevice> (&make)(const Settings& settings);

  /// A new device, never null. Main thread, as everything that touches a device.
  std::shared_ptr<KivStressDevice> makeDevice() const { return make(settings); }
};

template <class Device, class Settings>
std::shared_ptr<KivStressDevice> makeDeviceOf(const Settings& settings) {
  return std::make_shared<Device>(settings);
}

/// A model whose driver class is `Device`.
template <class Device, class Settings>
DeviceModel<Settings> modelOf(Settings settings) {
  return {std::move(settings), makeDeviceOf<Device, Settings>};
}

/// The models that a manager offers, in the order in which it lists them. Any list may be empty; the
/// blood-pressure monitor is always there.
struct DeviceCatalogue {
  std::vector<DeviceModel<ExerciseDeviceSettings>> treadmills;
  std::vector<DeviceModel<ExerciseDeviceSettings>> ergometers;
  std::vector<DeviceModel<SpO2DeviceSettings>> oximeters;
  DeviceModel<BPDeviceSettings> bloodPressureMonitor;

  /// A new device of every model of that kind, in the catalogue's order. Main thread.
  std::vector<std::shared_ptr<KivStressDevice>> makeExerciseDevices(StressDeviceType type) const;
  /// A new device of every oximeter, in the catalogue's order. Main thread.
  std::vector<std::shared_ptr<KivStressDevice>> makeOximeters() const;
};

}  // namespace tarsil
