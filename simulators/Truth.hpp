#pragma once

#include <string>
#include <vector>

#include "tarsil/runtime/Clock.hpp"

namespace tarsil::simulators {

/// A load of a treadmill or an ergometer; what the device does not have is 0.
struct Load {
  double speed = 0.0;  // km/h
  double grade = 0.0;  // percent
  double power = 0.0;  // watts

  bool operator==(const Load&) const = default;
};

/// What an exercise device does in truth, whatever it says on its line.
struct Truth {
  enum class Exercise { none, treadmill, ergometer };

  Exercise exercise = Exercise::none;
  /// What the belt or the brake does at this moment.
  Load actual;
  /// What its host has asked for last, as far as the device could read it.
  Load asked;
  /// Started and not stopped: the belt moves, or is about to, once a speed is asked for.
  bool isRunning = false;

  bool operator==(const Truth&) const = default;
};

/// The truth at an instant of the device's own time.
struct TruthAt {
  Duration when;
  Truth truth;
};

/// "12.50 s, asked 5.0 km/h 2.5 %, actual 4.2 km/h 2.5 %, running"
std::string text(const TruthAt& entry);

/// How the truth changed over time: each change of what was asked, and movement four times a second.
class History {
 public:
  /// To be told at every step of time, and whenever something was asked.
  void note(Duration now, const Truth& truth);
  const std::vector<TruthAt>& entries() const { return entries_; }

 private:
  std::vector<TruthAt> entries_;
  Truth last_;
};

}  // namespace tarsil::simulators
