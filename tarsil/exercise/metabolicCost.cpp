#include "tarsil/exercise/metabolicCost.hpp"

#include <cmath>

namespace tarsil {
namespace {

/// ml of oxygen a minute and kilogram.
constexpr double uptakeAtRest = 3.5;

/// m a minute, of a belt with 1 km/h.
constexpr double metresPerMinute = 1000.0 / 60;

constexpr double slowestWalk = 50;
constexpr double fastestWalk = 100;
constexpr double slowestRun = 134;

constexpr double lowestPower = 50;
constexpr double highestPower = 200;

bool isQuantity(double value) {
  return std::isfinite(value) && value >= 0;
}

}  // namespace

std::optional<MetabolicCost> costOnTreadmill(double speed, double grade) {
  if (!isQuantity(speed) || !isQuantity(grade)) return std::nullopt;
  if (speed == 0) return MetabolicCost{.equivalents = 1, .isWithinValidity = true};
  const double v = speed * metresPerMinute;
  const double g = grade / 100;
  const bool isRun = v > slowestRun;
  const double uptake = (isRun ? 0.2 * v + 0.9 * v * g : 0.1 * v + 1.8 * v * g) + uptakeAtRest;
  return MetabolicCost{.equivalents = uptake / uptakeAtRest,
                       .isWithinValidity = isRun || (v >= slowestWalk && v <= fastestWalk)};
}

std::optional<MetabolicCost> costOnErgometer(double power, double mass) {
  if (!isQuantity(power) || !isQuantity(mass) || mass == 0) return std::nullopt;
  if (power == 0) return MetabolicCost{.equivalents = 1, .isWithinValidity = true};
  const double uptake = 10.8 * power / mass + 2 * uptakeAtRest;
  return MetabolicCost{.equivalents = uptake / uptakeAtRest,
                       .isWithinValidity = power >= lowestPower && power <= highestPower};
}

}  // namespace tarsil
