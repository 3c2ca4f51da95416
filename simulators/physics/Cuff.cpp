#include "simulators/physics/Cuff.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "simulators/physics/Patient.hpp"

namespace tarsil::simulators {

void Cuff::start() {
  const double seconds = 20.0 + 20.0 * std::clamp((patient_.effort() - 1.0) / 11.0, 0.0, 1.0);
  remaining_ = std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
}

bool Cuff::advance(Duration duration) {
  if (!remaining_) return false;
  *remaining_ -= duration;
  if (*remaining_ > Duration::zero()) return false;
  remaining_.reset();
  last_ = {static_cast<int>(std::lround(patient_.systolicPressure())),
           static_cast<int>(std::lround(patient_.diastolicPressure()))};
  return true;
}

}  // namespace tarsil::simulators
