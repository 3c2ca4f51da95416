#pragma once

#include <string>

#include "tarsil/core/DeviceModel.hpp"
#include "tarsil/guard/Answer.hpp"
#include "tarsil/guard/Limits.hpp"
#include "tarsil/guard/Load.hpp"

namespace tarsil::detail {

/// Which loads one model may be given, and how to get from one to another.
class LoadRules {
 public:
  /// Of an exercise device.
  LoadRules(const DeviceModel& model, const Limits& limits);

  Answer check(const Load& load) const;
  /// The next load on the way, a second after the last one. Every value of it is carried by the model's
  /// frames.
  Load step(const Load& from, const Load& to) const;
  /// True when one of its values is above `than`'s.
  static bool raises(const Load& load, const Load& than);
  /// The parts of `to` that are below `from`, and `from` for the rest.
  static Load onlyLower(const Load& from, const Load& to);

 private:
  Answer checkValue(const char* quantity, const char* unit, float value, const CarriedRange& carried,
                    const Limit& limit) const;

  const std::string model_;
  const ExerciseFacts facts_;
  Limits limits_;
};

}  // namespace tarsil::detail
