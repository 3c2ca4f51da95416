#include "tarsil/runtime/detail/schedule.hpp"

#include <bit>
#include <cstdint>

namespace tarsil::detail {

using Instant = Clock::Instant;

Instant after(Instant start, Duration duration) {
  if (duration <= Duration::zero()) return start;
  if (start > Instant::max() - duration) return Instant::max();
  return start + duration;
}

Instant nextBeat(Instant beat, Duration interval, Instant now) {
  const Duration missed = now > beat ? (now - beat) / interval * interval : Duration::zero();
  return after(beat + missed, interval);
}

Instant sharedInstant(Instant due, Duration leeway) {
  if (leeway <= Duration::zero()) return due;
  const Duration grid{static_cast<Duration::rep>(std::bit_floor(static_cast<std::uint64_t>(leeway.count())))};
  const Duration past = due.time_since_epoch() % grid;
  return past == Duration::zero() ? due : after(due, grid - past);
}

}  // namespace tarsil::detail
