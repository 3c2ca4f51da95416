#include "tarsil/core/DeviceCatalogue.hpp"

namespace tarsil {
namespace {

template <class Settings>
std::vector<std::shared_ptr<KivStressDevice>> makeAll(const std::vector<DeviceModel<Settings>>& models) {
  std::vector<std::shared_ptr<KivStressDevice>> devices;
  devices.reserve(models.size());
  for (const auto& model : models) devices.push_back(model.makeDevice());
  return devices;
}

}  // namespace

std::vector<std::shared_ptr<KivStressDevice>> DeviceCatalogue::makeExerciseDevices(
    StressDeviceType type) const {
  return makeAll(type == StressDeviceType::Treadmill ? treadmills : ergometers);
}

std::vector<std::shared_ptr<KivStressDevice>> DeviceCatalogue::makeOximeters() const {
  return makeAll(oximeters);
}

}  // namespace tarsil
