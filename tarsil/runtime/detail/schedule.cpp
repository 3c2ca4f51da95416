#include "tarsil/runtime/detail/schedule.hpp"

#include <algorithm>
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
  const auto first = static_cast<std::uint64_t>(due.time_since_epoch().count());
  const auto last = static_cast<std::uint64_t>(after(due, leeway).time_since_epoch().count());
  if (first == 0 || first == last) return due;
  // The highest bit in which the two ends differ changes within the window; there, all bits below it are
  // zero.
  const std::uint64_t changing = std::bit_floor((first - 1) ^ last);
  return Instant(Duration(static_cast<Duration::rep>(last & ~(changing - 1))));
}

Instant sharedBeat(Instant due, Duration interval, Duration leeway) {
  const Duration sinceMultiple = due.time_since_epoch() % interval;
  const Instant multiple = sinceMultiple == Duration::zero() ? due : after(due, interval - sinceMultiple);
  return std::min(multiple, after(due, leeway));
}

}  // namespace tarsil::detail
