#pragma once

#include "tarsil/runtime/Clock.hpp"

namespace tarsil::detail {

/// The shortest beat of a repeating timer; a shorter one would keep the thread from everything else.
inline constexpr Duration shortestInterval = std::chrono::microseconds(100);

/// `start + duration`; a sum beyond the end of time stays at the end, a negative duration counts as none.
Clock::Instant after(Clock::Instant start, Duration duration);

/// The first whole multiple of `interval` after `beat` that is still to come at `now`. The interval is
/// positive.
Clock::Instant nextBeat(Clock::Instant beat, Duration interval, Clock::Instant now);

/// The instant within [`due`, `due + leeway`] at which a timer first fires: the roundest one, as a binary
/// number of nanoseconds. Timers prefer the same few instants this way, whatever their leeways, and share
/// wake-ups without knowing of each other.
Clock::Instant sharedInstant(Clock::Instant due, Duration leeway);

/// The instant within [`due`, `due + leeway`] at which a timer fires again: a whole multiple of its interval,
/// counted from the clock's beginning, or as late as it may where there is none. Timers of one interval, each
/// due an interval after it fired, so come to fire together, and stay.
Clock::Instant sharedBeat(Clock::Instant due, Duration interval, Duration leeway);

}  // namespace tarsil::detail
