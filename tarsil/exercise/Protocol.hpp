#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/core/StressDeviceType.hpp"
#include "tarsil/runtime/Clock.hpp"

namespace tarsil {

/// A stretch of an exercise test with one load, or with a load that rises evenly.
struct Phase {
  enum class Kind { warmUp, stage, recovery };

  Kind kind = Kind::stage;
  Duration duration{};
  /// km/h or watts, at its beginning and at its end.
  float load = 0;
  float endLoad = 0;
  /// percent; 0 for a bicycle
  float grade = 0;

  bool operator==(const Phase&) const = default;
};

/// When a blood pressure is measured. A protocol that names no time of the exercise has one pressure in each
/// stage, towards its end.
struct PressureTimes {
  /// Before the exercise begins.
  bool atRest = false;
  /// In each stage that lasts so long, counted from its beginning.
  std::vector<Duration> inStage = {};
  /// Again and again, counted from the beginning of the first stage to the end of the last; zero: not.
  Duration every{};
  /// Counted from the beginning of the recovery.
  std::vector<Duration> inRecovery = {};
  Duration everyInRecovery{};

  bool nameExerciseTimes() const { return !inStage.empty() || every > Duration::zero(); }
  bool operator==(const PressureTimes&) const = default;
};

/// An exercise protocol: warm-up, stages, recovery.
struct Protocol {
  std::string name;
  StressDeviceType device = StressDeviceType::Treadmill;
  std::vector<Phase> phases;
  PressureTimes pressures = {};
  /// The line of its text that each phase stands in, counted from 1; empty for a protocol that was not read.
  std::vector<int> lines = {};

  Duration duration() const;
  /// "warm-up", "stage 2 of 7", "recovery". `index` is less than the number of phases.
  std::string phaseName(std::size_t index) const;
};

/// A protocol's text that cannot be used; the reason names the file and the line.
struct ProtocolError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// Reads a protocol from its text, a line a statement; "#" begins a comment:
///
///     name      Bruce
///     device    treadmill
///     warm-up   1:00  1.6  0       # minutes:seconds, km/h, grade in percent
///     stage     3:00  2.7  10
///     recovery  2:00  1.6  0
///
/// A bicycle's phases have watts and no grade; "ramp 10:00 25 225" is a stage whose watts rise evenly. Speeds
/// up to 25 km/h, grades from 0 to 30 %, powers up to 999 W and durations from a second to two hours are
/// taken. Blood pressures may be asked for anywhere in the text, each statement as often as it is needed:
///
///     pressure  rest               # before the exercise begins
///     pressure  at 2:00            # in each stage that lasts so long
///     pressure  every 3:00         # from the first stage's beginning on; at least a minute
///     pressure  recovery at 1:00   # after the recovery began
///     pressure  recovery every 2:00
///
/// Throws `ProtocolError`; `file` names the text in it. Any thread.
Protocol readProtocol(std::string_view text, const std::string& file);

/// The protocol as such a text; reading it gives the same protocol, but for its lines. Any thread.
std::string protocolText(const Protocol& protocol);

}  // namespace tarsil
