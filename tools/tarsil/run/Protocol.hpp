#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/core/StressDeviceType.hpp"
#include "tarsil/runtime/Clock.hpp"

namespace tarsil::cli {

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

/// An exercise protocol: warm-up, stages, recovery.
struct Protocol {
  std::string name;
  StressDeviceType device = StressDeviceType::Treadmill;
  std::vector<Phase> phases;

  Duration duration() const;
};

/// A protocol file that cannot be used; the text names the file, the line and the reason.
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
/// taken. Throws `ProtocolError`; `file` names the text in it.
Protocol readProtocol(std::string_view text, const std::string& file);

}  // namespace tarsil::cli
