#pragma once

#include <algorithm>

#include "tarsil/runtime/Clock.hpp"

namespace tarsil::simulators {

/// A quantity that follows what is asked of it as far and as fast as it can, as a belt or a brake does. It
/// begins at 0.
class Ramp {
 public:
  /// In units of the quantity.
  struct Reach {
    double least;
    double most;
    double perSecond;
  };
  explicit Ramp(Reach reach) : reach_(reach) {}

  void setTarget(double asked) { target_ = std::clamp(asked, reach_.least, reach_.most); }
  double value() const { return value_; }

  void advance(Duration duration) {
    const double step = reach_.perSecond * std::chrono::duration<double>(duration).count();
    value_ += std::clamp(target_ - value_, -step, step);
  }

 private:
  const Reach reach_;
  double value_ = 0.0;
  double target_ = 0.0;
};

}  // namespace tarsil::simulators
