#pragma once

#include <cstdint>
#include <optional>

namespace tarsil {

/// The role of a serial port.
enum class PortType : std::int64_t {
  /// The exercise device: treadmill or ergometer.
  device = 0,
  /// The separate blood-pressure monitor.
  BP = 1,
  /// The separate pulse oximeter.
  SpO2 = 2,
};

/// None for every value outside 0 to 2. Any thread.
std::optional<PortType> portTypeFromRawValue(std::int64_t rawValue);

}  // namespace tarsil
