#include "tarsil/runtime/detail/Source.hpp"

#include <string>
#include <utility>

#include "tarsil/runtime/detail/QueueImplementation.hpp"
#include "tarsil/runtime/detail/Reactor.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil::detail {

Source::Source(DispatchQueue queue)
    : reactor_(DispatchQueue::Implementation::of(queue).reactor()), queue_(std::move(queue)) {}

void Source::setEventHandler(Work handler) {
  setHandler(eventHandler_, std::move(handler), "setEventHandler");
}

void Source::setCancelHandler(Work handler) {
  setHandler(cancelHandler_, std::move(handler), "setCancelHandler");
}

void Source::setHandler(Work& place, Work handler, const char* setter) {
  const std::lock_guard lock(mutex_);
  if (cancelled_) return;
  if (state_ != State::suspended) fatalError(std::string(setter) + " on a source that was resumed already");
  place.swap(handler);
}

void Source::resume() {
  const std::lock_guard lock(mutex_);
  if (state_ != State::suspended) return;
  if (!eventHandler_) fatalError("resume() on a source without an event handler");
  arm();
  state_ = State::armed;
}

void Source::cancel() {
  const std::lock_guard lock(mutex_);
  if (std::exchange(cancelled_, true)) return;
  if (state_ == State::delivering) return;
  if (state_ == State::armed) disarm();
  state_ = State::ended;
  queue_.async([self = shared_from_this()] { self->end(); });
}

bool Source::isCancelled() const {
  const std::lock_guard lock(mutex_);
  return cancelled_;
}

void Source::happened() {
  {
    const std::lock_guard lock(mutex_);
    // Cancelled while the reactor's thread was on its way here.
    if (state_ != State::armed) return;
    state_ = State::delivering;
  }
  DispatchQueue::Implementation::of(queue_).deliver([self = shared_from_this()] { self->deliver(); });
}

void Source::deliver() {
  try {
    if (!isCancelled()) {
      willFire();
      eventHandler_();
    }
  } catch (...) {
    goOn();
    throw;
  }
  goOn();
}

// After the handler: on to the next event, or to the end.
void Source::goOn() {
  const std::lock_guard lock(mutex_);
  if (!cancelled_) {
    arm();
    state_ = State::armed;
    return;
  }
  disarm();
  state_ = State::ended;
  queue_.async([self = shared_from_this()] { self->end(); });
}

void Source::end() {
  Work eventHandler;
  Work cancelHandler;
  {
    const std::lock_guard lock(mutex_);
    eventHandler.swap(eventHandler_);
    cancelHandler.swap(cancelHandler_);
  }
  if (cancelHandler) cancelHandler();
}

}  // namespace tarsil::detail
