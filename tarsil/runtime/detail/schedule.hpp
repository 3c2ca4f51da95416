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

/// The instant within [`due`, `due + leeway`] at which a timer fires: the roundest one, as a binary number of
/// nanoseconds. Timers prefer the same few instants this way, whatever their leeways, and share wake-ups
/// without knowing of each other.
Clock::Instant sharedInstant(Clock::Instant due, Duration leeway);

}  // namespace tarsil::detail
