#pragma once

#include <cstdint>

#include "simulators/physics/Ramp.hpp"
#include "tarsil/runtime/Clock.hpp"

namespace tarsil::simulators {

/// The pedals of a bicycle and its brake: the rider turns them as soon as the exercise runs, and the brake
/// follows the wanted power.
class Pedals {
 public:
  /// Does nothing while the machine itself has stopped the exercise.
  void start() {
    if (!stopped_) setRunning(true);
  }
  void stop() { setRunning(false); }
  bool isRunning() const { return running_; }

  /// @name The machine's own buttons
  /// @{
  void pressStop() {
    stopped_ = true;
    stop();
  }
  /// Gives the exercise back to the host.
  void pressStart() { stopped_ = false; }
  /// @}

  /// watts
  void setPower(double power) {
    wanted_ = power;
    setRunning(running_);
  }
  double power() const { return power_.value(); }
  /// What the host has asked for last, whether the exercise runs or not.
  double wantedPower() const { return wanted_; }
  /// Revolutions per minute, with a rider's unevenness taken from a number evenly spread over 32 bits.
  int rate(std::uint32_t random) const {
    const int steady = static_cast<int>(rate_.value());
    return steady == 0 ? 0 : steady - 2 + static_cast<int>(random % 5);
  }

  void advance(Duration duration) {
    power_.advance(duration);
    rate_.advance(duration);
  }

 private:
  void setRunning(bool running) {
    running_ = running;
    power_.setTarget(running ? wanted_ : 0.0);
    rate_.setTarget(running ? 60.0 : 0.0);
  }

  Ramp power_{{.least = 0.0, .most = 1000.0, .perSecond = 25.0}};  // W
  Ramp rate_{{.least = 0.0, .most = 60.0, .perSecond = 15.0}};     // rpm
  double wanted_ = 0.0;
  bool running_ = false;
  bool stopped_ = false;
};

}  // namespace tarsil::simulators
