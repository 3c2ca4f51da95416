#include "tools/tarsil/report/Axis.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace tarsil::cli {

Axis Axis::around(double low, double high, int ticks) {
  const double range = std::max(high - low, 1.0);
  const double power = std::pow(10, std::floor(std::log10(range / ticks)));
  double step = 10 * power;
  for (const double factor : {5.0, 2.0, 1.0}) {
    if (factor * power * ticks >= range) step = factor * power;
  }
  const double bottom = std::floor(low / step) * step;
  const double top = std::ceil(high / step) * step;
  return {bottom, top > bottom ? top : bottom + step, step};
}

Axis Axis::ofTime(double end, int ticks) {
  constexpr std::array steps{1, 2, 5, 10, 15, 30, 60, 120, 180, 300, 600, 900, 1800, 3600, 7200};
  const double last = std::max(end, 1.0);
  const auto enough =
      std::find_if(steps.begin(), steps.end(), [&](int step) { return step * ticks >= last; });
  return {0, last, enough == steps.end() ? last : static_cast<double>(*enough)};
}

std::vector<double> Axis::ticks() const {
  std::vector<double> values;
  // Counted in steps, so that no error adds up.
  // Without the sign that a rounded zero may have.
  const double first = std::ceil(low_ / step_ - 1e-9) + 0.0;
  for (double step = first; step * step_ <= high_ + step_ * 1e-9; ++step) values.push_back(step * step_);
  return values;
}

}  // namespace tarsil::cli
