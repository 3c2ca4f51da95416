#include "tarsil/runtime/DispatchSource.hpp"

#include <sys/ioctl.h>

#include <algorithm>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "tarsil/runtime/detail/QueueImplementation.hpp"
#include "tarsil/runtime/detail/Reactor.hpp"
#include "tarsil/runtime/detail/schedule.hpp"
#include "tarsil/runtime/detail/systemEvents.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil {
namespace {

using namespace detail;

/// The life of a source, whatever it waits for: suspended, then in turns armed (the reactor watches for the
/// event) and delivering (the handler is on its way or runs), at last ended. Only who takes it out of
/// `suspended` or `armed` may end it, and a source that delivers ends itself, so the cancel handler comes
/// once and last.
class Source : public std::enable_shared_from_this<Source> {
 public:
  virtual ~Source() = default;
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  void setEventHandler(Work handler);
  void setCancelHandler(Work handler);
  void resume();
  void cancel();
  bool isCancelled() const;

 protected:
  explicit Source(DispatchQueue queue);

  /// Lets the reactor watch for the next event. Called under the source's lock, as is `disarm`.
  virtual void arm() = 0;
  virtual void disarm() = 0;

  /// Called on the queue, right before the event handler.
  virtual void willFire() {}

  /// Called by the reactor's thread for the event that the source was armed for.
  void happened();

  const std::shared_ptr<Reactor> reactor_;

 private:
  enum class State { suspended, armed, delivering, ended };

  void setHandler(Work& place, Work handler, const char* setter);
  void deliver();
  void goOn();
  void end();

  const DispatchQueue queue_;
  mutable std::mutex mutex_;
  State state_ = State::suspended;
  bool cancelled_ = false;
  /// Set while suspended, let go of at the end, and left alone in between.
  Work eventHandler_;
  Work cancelHandler_;
};

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

/// Waits for a descriptor to become readable.
class ReadSource final : public Source, public Watcher {
 public:
  ReadSource(int descriptor, DispatchQueue queue) : Source(std::move(queue)), descriptor_(descriptor) {}

  void ready(bool hungUp) override {
    hungUp_ = hungUp;
    happened();
  }

 private:
  void arm() override;
  void disarm() override;
  void willFire() override;

  const int descriptor_;
  bool watched_ = false;
  std::optional<Reactor::WatchId> watch_;
  /// What the last report said.
  bool hungUp_ = false;
  /// The descriptor had hung up and was empty when the handler was last called.
  bool atEnd_ = false;
};

// A hung-up descriptor counts as readable for ever, with bytes or without.
bool holdsBytes(int descriptor) {
  int held = 0;
  return ioctl(descriptor, FIONREAD, &held) == 0 && held > 0;
}

void ReadSource::arm() {
  if (!watched_) {
    watch_ = reactor_->watch(descriptor_, std::static_pointer_cast<ReadSource>(shared_from_this()));
    watched_ = true;
    return;
  }
  if (!watch_) return;
  // The handler has seen the end. Still there? An error that has passed is none.
  if (atEnd_ && isHungUp(descriptor_)) return;
  reactor_->rearm(*watch_);
}

void ReadSource::disarm() {
  if (watch_) reactor_->unwatch(*watch_);
}

void ReadSource::willFire() {
  // In this order: asking for the hang-up moves bytes on that a terminal has received but not yet made
  // readable.
  atEnd_ = hungUp_ && isHungUp(descriptor_) && !holdsBytes(descriptor_);
}

/// Waits for one beat after the other.
class TimerSource final : public Source, public Alarm {
 public:
  TimerSource(Duration delay, Duration interval, Duration leeway, DispatchQueue queue);

  void ring() override { happened(); }

 private:
  void arm() override;
  void disarm() override;

  const Duration interval_;
  const Duration leeway_;
  bool started_ = false;
  /// When it fires next, or fired last.
  Clock::Instant beat_;
};

TimerSource::TimerSource(Duration delay, Duration interval, Duration leeway, DispatchQueue queue)
    : Source(std::move(queue)),
      interval_(std::max(interval, shortestInterval)),
      leeway_(leeway),
      beat_(after(reactor_->now(), delay)) {}

void TimerSource::arm() {
  const bool isFirst = !std::exchange(started_, true);
  if (!isFirst) beat_ = nextBeat(beat_, interval_, reactor_->now());
  if (!reactor_->isVirtual()) {
    beat_ = isFirst ? sharedInstant(beat_, leeway_) : sharedBeat(beat_, interval_, leeway_);
  }
  reactor_->schedule(std::static_pointer_cast<TimerSource>(shared_from_this()), beat_);
}

void TimerSource::disarm() {
  reactor_->unschedule(*this);
}

/// The hosts' share in a source; dropping the last one cancels it. The runtime's own share lasts until the
/// cancel handler has run.
class SourceHandle final : public DispatchSource {
 public:
  explicit SourceHandle(std::shared_ptr<Source> source) : source_(std::move(source)) {}
  ~SourceHandle() override { source_->cancel(); }

  void setEventHandler(Work handler) override { source_->setEventHandler(std::move(handler)); }
  void setCancelHandler(Work handler) override { source_->setCancelHandler(std::move(handler)); }
  void resume() override { source_->resume(); }
  void cancel() override { source_->cancel(); }
  bool isCancelled() const override { return source_->isCancelled(); }

 private:
  const std::shared_ptr<Source> source_;
};

}  // namespace

std::shared_ptr<DispatchSource> DispatchSource::read(int descriptor, DispatchQueue queue) {
  return std::make_shared<SourceHandle>(std::make_shared<ReadSource>(descriptor, std::move(queue)));
}

std::shared_ptr<DispatchSource> DispatchSource::timer(Duration delay, Duration interval, Duration leeway,
                                                      DispatchQueue queue) {
  return std::make_shared<SourceHandle>(
      std::make_shared<TimerSource>(delay, interval, leeway, std::move(queue)));
}

}  // namespace tarsil
