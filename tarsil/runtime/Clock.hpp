#pragma once

#include <chrono>

namespace tarsil {

/// Lengths of time, to the nanosecond.
using Duration = std::chrono::nanoseconds;

/// The time that the library lives by: the machine's, or a `VirtualTime`'s while one exists. Any thread.
class Clock {
 public:
  /// Time since an arbitrary start; never goes backwards.
  using Instant = std::chrono::time_point<Clock, Duration>;
  using rep = Duration::rep;
  using period = Duration::period;
  using duration = Duration;
  using time_point = Instant;
  static constexpr bool is_steady = true;

  static Instant now();

  /// The time of day, for stamps that people read.
  static std::chrono::system_clock::time_point wallNow();
};

}  // namespace tarsil
