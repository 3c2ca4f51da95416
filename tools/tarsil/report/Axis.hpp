#pragma once

#include <vector>

namespace tarsil::cli {

/// A scale of a chart with round ends and evenly spaced ticks at round numbers.
class Axis {
 public:
  /// From `low` or less to `high` or more, in at most about `ticks` steps.
  static Axis around(double low, double high, int ticks);
  /// From 0 to exactly `end` seconds; ticks at whole seconds, minutes or hours.
  static Axis ofTime(double end, int ticks);

  double low() const { return low_; }
  double high() const { return high_; }
  std::vector<double> ticks() const;
  /// Where a value lies: 0 at the low end, 1 at the high one.
  double fraction(double value) const { return (value - low_) / (high_ - low_); }

 private:
  Axis(double low, double high, double step) : low_(low), high_(high), step_(step) {}

  double low_;
  double high_;
  double step_;
};

}  // namespace tarsil::cli
