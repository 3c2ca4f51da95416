#include "tarsil/runtime/Timer.hpp"

#include <algorithm>
#include <optional>
#include <utility>

#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/detail/Reactor.hpp"
#include "tarsil/runtime/detail/RunLoopImplementation.hpp"
#include "tarsil/runtime/detail/schedule.hpp"

namespace tarsil {

struct Timer::State final : detail::Alarm {
  explicit State(Timer& timer) : owner(timer) {}

  void start(std::shared_ptr<detail::Reactor> loop, Duration delay);
  void scheduleAt(Clock::Instant at);
  void ring() override;
  void abandon() override { stop(); }
  void stop();

  Timer& owner;
  std::shared_ptr<detail::Reactor> reactor;
  /// None for a timer that fires once.
  std::optional<Duration> interval;
  std::function<void(Timer&)> action;
  Clock::Instant due;
  bool valid = true;
};

std::shared_ptr<Timer> Timer::scheduled(Duration interval, bool repeats, std::function<void(Timer&)> action) {
  return scheduledOn(RunLoop::current(), interval, repeats, std::move(action));
}

std::shared_ptr<Timer> Timer::scheduledOn(RunLoop& loop, Duration interval, bool repeats,
                                          std::function<void(Timer&)> action) {
  auto timer = std::make_shared<Timer>(Key{});
  State& state = *timer->state_;
  if (repeats) state.interval = std::max(interval, detail::shortestInterval);
  state.action = std::move(action);
  state.start(RunLoop::Implementation::of(loop).reactor(), state.interval.value_or(interval));
  return timer;
}

std::shared_ptr<Timer> Timer::unscheduled() {
  return std::make_shared<Timer>(Key{});
}

Timer::Timer(Key) : state_(std::make_unique<State>(*this)) {}

Timer::~Timer() = default;

void Timer::invalidate() {
  // The loop may have held the last reference.
  const auto self = shared_from_this();
  state_->stop();
}

bool Timer::isValid() const {
  return state_->valid;
}

void Timer::State::start(std::shared_ptr<detail::Reactor> loop, Duration delay) {
  reactor = std::move(loop);
  scheduleAt(detail::after(reactor->now(), delay));
}

void Timer::State::scheduleAt(Clock::Instant at) {
  due = at;
  // The loop's share in the timer: it lives on for as long as it is scheduled.
  reactor->schedule(std::shared_ptr<Alarm>(owner.shared_from_this(), this), at);
}

void Timer::State::ring() {
  if (!valid) return;
  // The action may invalidate the timer, which lets go of what it holds, but not of the code that runs.
  auto running = std::exchange(action, nullptr);
  if (!interval) valid = false;
  const auto goOn = [&] {
    if (!valid) return;
    action = std::move(running);
    scheduleAt(detail::nextBeat(due, *interval, reactor->now()));
  };
  try {
    if (running) running(owner);
  } catch (...) {
    goOn();
    throw;
  }
  goOn();
}

void Timer::State::stop() {
  valid = false;
  if (reactor) reactor->unschedule(*this);
  // Empty before what it holds goes: that may call back.
  std::exchange(action, nullptr);
}

}  // namespace tarsil
