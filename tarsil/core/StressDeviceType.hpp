#pragma once

#include <optional>
#include <string_view>

namespace tarsil {

/// The kinds of exercise device.
enum class StressDeviceType { Treadmill, Ergometer };

/// "Treadmill" or "Ergometer". Any thread.
std::string_view rawValue(StressDeviceType type);

/// None for every text that is not exactly a raw value, another case included. Any thread.
std::optional<StressDeviceType> stressDeviceTypeFromRawValue(std::string_view rawValue);

}  // namespace tarsil
