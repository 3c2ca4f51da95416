#pragma once

#include <optional>
#include <string>

#include "tarsil/exercise/ExerciseTest.hpp"
#include "tarsil/guard/GuardedStation.hpp"

namespace tarsil::cli {

// A session as the live page has it: JSON texts of one line each. Times are in seconds since the session
// began, loads in the interface's units; null stands for what is not known. Main thread.

/// What does not change.
struct SessionTitle {
  std::string model;
  /// Empty: not given.
  std::string patient;
  bool isSimulated = false;
  /// The page may control it.
  bool takesOrders = false;
};

/// How it ended.
struct SessionEnd {
  /// For people.
  std::string text;
  /// It ran to its end, and nothing is missing.
  bool isGood = false;
  /// Where its files are; empty: nothing is kept.
  std::string folder;
};

/// Everything that holds now; `end` only when it is over.
std::string nowJson(const SessionTitle& title, const ExerciseTest& test, const GuardedStation& station,
                    Duration at, const std::optional<SessionEnd>& end = std::nullopt);

/// A point of the chart: {"at", "isExercising", "asked", "askedGrade", "load", "grade",
/// "pedals", "saturation"}.
std::string sampleJson(const ExerciseTest& test, const GuardedStation& station, Duration at);

/// What happened: {"event": {"at", "who", "text", "isFailure", "isMark"}}, with "phase" where one begins,
/// with "pressure" where one was measured. Empty where it is no news.
std::string eventJson(const Event& event, Duration at, StressDeviceType kind);

}  // namespace tarsil::cli
