#pragma once

namespace tarsil {

/// What an exercise device is told to do, or reports to do: a treadmill has speed and grade, a bicycle power;
/// what its kind does not have stays 0.
struct Load {
  /// km/h
  float speed = 0;
  /// percent
  float grade = 0;
  /// watts
  float power = 0;

  bool operator==(const Load&) const = default;
};

}  // namespace tarsil
