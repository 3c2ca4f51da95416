#include "tarsil/core/DeviceCatalogue.hpp"

namespace tarsil {
namespace {

std::vector<std::shared_ptr<KivStressDevice>> makeAll(const std::vector<DeviceModel>& models) {
  std::vector<std::shared_ptr<KivStressDevice>> devices;
  devices.reserve(models.size());
  for (const auto& model : models) devices.push_back(model.makeDevice());
  return devices;
}

}  // namespace

std::vector<DeviceModel> DeviceCatalogue::models() const {
  std::vector<DeviceModel> all;
  const auto add = [&all](const std::vector<DeviceModel>& models) {
    all.insert(all.end(), models.begin(), models.end());
  };
  add(treadmills);
  add(ergometers);
  add({bloodPressureMonitor});
  add(oximeters);
  add(wirelessOximeters);
  return all;
}

std::optional<DeviceModel> DeviceCatalogue::modelNamed(std::string_view name) const {
  for (auto& model : models()) {
    if (model.name == name) return std::move(model);
  }
  return std::nullopt;
}

std::vector<std::shared_ptr<KivStressDevice>> DeviceCatalogue::makeExerciseDevices(
    StressDeviceType type) const {
  return makeAll(type == StressDeviceType::Treadmill ? treadmills : ergometers);
}

std::vector<std::shared_ptr<KivStressDevice>> DeviceCatalogue::makeOximeters() const {
  return makeAll(oximeters);
}

}  // namespace tarsil
