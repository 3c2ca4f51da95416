#pragma once

#include <optional>

#include "tarsil/runtime/Clock.hpp"

namespace tarsil::simulators {

class Patient;

/// A blood-pressure reading, mmHg.
struct PressureReading {
  int systolic = 0;
  int diastolic = 0;
};

/// A cuff that inflates and deflates; the harder the patient works, the longer it takes (20 to 40 s).
class Cuff {
 public:
  explicit Cuff(const Patient& patient) : patient_(patient) {}

  void start();
  void abort() { remaining_.reset(); }
  bool isMeasuring() const { return remaining_.has_value(); }
  /// The last finished reading; zeros before the first one.
  const PressureReading& lastReading() const { return last_; }
  void clear() { last_ = {}; }

  /// True in the call in which a measurement ends.
  bool advance(Duration duration);

 private:
  const Patient& patient_;
  std::optional<Duration> remaining_;
  PressureReading last_;
};

}  // namespace tarsil::simulators
