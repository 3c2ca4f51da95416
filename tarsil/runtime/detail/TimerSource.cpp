#include "tarsil/runtime/detail/TimerSource.hpp"

#include <algorithm>
#include <utility>

#include "tarsil/runtime/detail/Reactor.hpp"
#include "tarsil/runtime/detail/schedule.hpp"

namespace tarsil::detail {

TimerSource::TimerSource(Duration delay, Duration interval, Duration leeway, DispatchQueue queue)
    : Source(std::move(queue)),
      interval_(std::max(interval, shortestInterval)),
      leeway_(leeway),
      beat_(after(reactor_->now(), delay)) {}

void TimerSource::arm() {
  if (started_) beat_ = nextBeat(beat_, interval_, reactor_->now());
  started_ = true;
  const Clock::Instant at = reactor_->isVirtual() ? beat_ : sharedInstant(beat_, leeway_);
  reactor_->schedule(std::static_pointer_cast<TimerSource>(shared_from_this()), at);
}

void TimerSource::disarm() {
  reactor_->unschedule(*this);
}

}  // namespace tarsil::detail
