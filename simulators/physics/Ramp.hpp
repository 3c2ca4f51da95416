#pragma once

#include <algorithm>

#include "tarsil/runtime/Clock.hpp"

namespace tarsil::simulators {

/// A quantity that follows its target at a limited rate, as a belt or a brake does.
class Ramp {
 public:
  /// `rate` in units of the quantity per second.
  explicit Ramp(double rate, double start = 0.0) : rate_(rate), value_(start), target_(start) {}

  void setTarget(double target) { target_ = target; }
  double target() const { return target_; }
  double value() const { return value_; }

  void advance(Duration duration) {
    const double step = rate_ * std::chrono::duration<double>(duration).count();
    value_ += std::clamp(target_ - value_, -step, step);
  }

 private:
  double rate_;
  double value_;
  double target_;
};

}  // namespace tarsil::simulators
