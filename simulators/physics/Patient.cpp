#include "simulators/physics/Patient.hpp"

#include <algorithm>
#include <cmath>

namespace tarsil::simulators {
namespace {

constexpr double weight = 75.0;          // kg
constexpr double restingUptake = 3.5;    // ml of oxygen per kg and minute: one metabolic equivalent
constexpr double adaptationTime = 40.0;  // s until the body has followed about two thirds of a change

}  // namespace

void Patient::walk(double speed, double grade) {
  const double metresPerMinute = speed * 1000.0 / 60.0;
  demand_ = (metresPerMinute * (0.1 + 1.8 * grade / 100.0) + restingUptake) / restingUptake;
}

void Patient::cycle(double power) {
  // 10.8 ml per watt, and 7 ml per kg for rest and for turning the unloaded pedals.
  demand_ = power <= 0.0 ? 1.0 : (10.8 * power / weight + 7.0) / restingUptake;
}

void Patient::advance(Duration duration) {
  const double seconds = std::chrono::duration<double>(duration).count();
  effort_ += (demand_ - effort_) * (1.0 - std::exp(-seconds / adaptationTime));
}

double Patient::heartRate() const {
  return std::min(70.0 + 10.0 * (effort_ - 1.0), 190.0);
}
double Patient::systolicPressure() const {
  return std::min(120.0 + 9.0 * (effort_ - 1.0), 220.0);
}
double Patient::diastolicPressure() const {
  return 78.0 - 0.5 * std::min(effort_ - 1.0, 12.0);
}
double Patient::oxygenSaturation() const {
  return 98.0 - 0.25 * std::min(effort_ - 1.0, 12.0);
}

}  // namespace tarsil::simulators
