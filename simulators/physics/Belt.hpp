#pragma once

#include "simulators/physics/Ramp.hpp"
#include "tarsil/runtime/Clock.hpp"

namespace tarsil::simulators {

/// The belt of a treadmill, speed and grade in the machine's own units, with the machine's own buttons. Once
/// the machine itself has stopped the belt, nothing that a host sends moves it until the button is released.
class Belt {
 public:
  Belt(Ramp::Reach speed, Ramp::Reach grade) : speed_(speed), grade_(grade) {}

  /// @name What a host sends: false while the belt is held at the machine
  /// @{
  bool start() { return !isHeld() && setRunning(true); }
  bool setSpeed(double speed) {
    if (isHeld()) return false;
    wantedSpeed_ = speed;
    return setRunning(running_);
  }
  bool setGrade(double grade) {
    if (isHeld()) return false;
    wantedGrade_ = grade;
    grade_.setTarget(grade);
    return true;
  }
  /// @}
  void stop() { setRunning(false); }

  /// @name The machine's own buttons
  /// @{
  void pressStop() {
    stopped_ = true;
    stop();
  }
  /// Gives the belt back to the host; it does not move before the host starts it.
  void pressStart() { stopped_ = false; }
  /// The belt is braked, five times as hard as it accelerates.
  void pressEmergency() {
    emergency_ = true;
    stop();
  }
  void releaseEmergency() { emergency_ = false; }
  bool isHeld() const { return stopped_ || emergency_; }
  /// @}

  bool isRunning() const { return running_; }
  double speed() const { return speed_.value(); }
  double grade() const { return grade_.value(); }
  /// What the host has asked for last, whether the belt runs or not.
  double wantedSpeed() const { return wantedSpeed_; }
  double wantedGrade() const { return wantedGrade_; }

  void advance(Duration duration) {
    speed_.advance(emergency_ ? 5 * duration : duration);
    grade_.advance(duration);
  }

 private:
  bool setRunning(bool running) {
    running_ = running;
    speed_.setTarget(running ? wantedSpeed_ : 0.0);
    return true;
  }

  Ramp speed_;
  Ramp grade_;
  double wantedSpeed_ = 0.0;
  double wantedGrade_ = 0.0;
  bool running_ = false;
  bool stopped_ = false;
  bool emergency_ = false;
};

}  // namespace tarsil::simulators
