#pragma once

#include "tarsil/runtime/Clock.hpp"

namespace tarsil::simulators {

/// A healthy adult of 75 kg whose body follows the effort with the delay that bodies have.
class Patient {
 public:
  /// Walking or running: speed in km/h, grade in percent.
  void walk(double speed, double grade);
  /// Cycling: power in watts.
  void cycle(double power);
  /// The effort itself, in metabolic equivalents (1 is rest).
  void setEffort(double mets) { demand_ = mets; }

  void advance(Duration duration);

  /// Effort that the load demands at this moment.
  double demand() const { return demand_; }
  /// Effort that the body has adapted to so far, in metabolic equivalents.
  double effort() const { return effort_; }
  double heartRate() const;
  /// mmHg
  double systolicPressure() const;
  double diastolicPressure() const;
  /// percent
  double oxygenSaturation() const;

 private:
  double demand_ = 1.0;
  double effort_ = 1.0;
};

}  // namespace tarsil::simulators
