#pragma once

#include <string>

#include "tarsil/core/StressDeviceType.hpp"

namespace tarsil::cli {

/// What a host has to know about a model beyond its catalogue entry.
struct ModelTraits {
  std::string model;
  StressDeviceType kind = StressDeviceType::Treadmill;
  /// It answers a load request.
  bool reportsLoad = false;
  /// What it reports follows the load; some drivers repeat their first value for ever.
  bool reportsFollow = false;
  /// What a reported value is divided by to give km/h or percent.
  float speedUnit = 1;
  float gradeUnit = 1;
  /// km/h; the driver does not bring over what is slower. 0: everything is.
  float slowest = 0;
  /// A built-in blood-pressure unit can be asked for its last result.
  bool answersPressure = false;
};

/// Traits of an exercise model; those of a model that never reports for one that is not known.
ModelTraits traitsOf(const std::string& model, StressDeviceType kind);

}  // namespace tarsil::cli
