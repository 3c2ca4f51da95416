#include "tarsil/core/StressDeviceType.hpp"

namespace tarsil {

std::string_view rawValue(StressDeviceType type) {
  return type == StressDeviceType::Treadmill ? "Treadmill" : "Ergometer";
}

std::optional<StressDeviceType> stressDeviceTypeFromRawValue(std::string_view rawValue) {
  if (rawValue == "Treadmill") return StressDeviceType::Treadmill;
  if (rawValue == "Ergometer") return StressDeviceType::Ergometer;
  return std::nullopt;
}

}  // namespace tarsil
