#include "tarsil/guard/detail/HostWatch.hpp"

#include <chrono>
#include <utility>

namespace tarsil::detail {
namespace {

using namespace std::chrono_literals;

/// The stop is repeated this often while the host stays away.
constexpr Duration repetition = 1s;

/// Looks for each heartbeat; what it takes longer to notice than a heartbeat.
constexpr int looks = 8;

}  // namespace

void HostWatch::arm(Duration heartbeat, std::function<void()> stop, std::unique_ptr<Watcher> watcher) {
  heartbeat_ = heartbeat;
  stop_ = std::move(stop);
  missed_ = false;
  watcherLost_ = false;
  watcherActed_ = false;
  lastStop_.reset();
  setWatcher(std::move(watcher));
  alive();
  source_ =
      DispatchSource::timer(heartbeat / looks, heartbeat / looks, Duration::zero(), DispatchQueue::global());
  source_->setEventHandler([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->look();
  });
  source_->resume();
}

void HostWatch::setWatcher(std::unique_ptr<Watcher> watcher) {
  const std::lock_guard lock(watcherMutex_);
  watcher_ = std::move(watcher);
}

void HostWatch::releaseWatcher() {
  std::unique_ptr<Watcher> watcher;
  {
    const std::lock_guard lock(watcherMutex_);
    watcher = std::move(watcher_);
  }
  if (watcher) static_cast<void>(watcher->disarm());
}

void HostWatch::disarm() {
  if (source_) source_->cancel();
  source_.reset();
  releaseWatcher();
}

void HostWatch::leaveToWatcher() {
  if (source_) source_->cancel();
  source_.reset();
  const std::lock_guard lock(watcherMutex_);
  watcher_.reset();
}

bool HostWatch::isLate() const {
  const Clock::Instant last{Duration(lastAlive_.load())};
  return Clock::now() - last > heartbeat_;
}

bool HostWatch::isBack() const {
  return missed_ && !isLate();
}

void HostWatch::look() {
  const bool late = isLate();
  lookAtWatcher(!late);
  if (!late) return;
  missed_ = true;
  const Clock::Instant now = Clock::now();
  if (lastStop_ && now - *lastStop_ < repetition) return;
  lastStop_ = now;
  stop_();
}

void HostWatch::lookAtWatcher(bool hostLives) {
  const std::lock_guard lock(watcherMutex_);
  if (!watcher_) return;
  const Watcher::State state = hostLives ? watcher_->alive() : watcher_->state();
  if (state == Watcher::State::tookOver) watcherActed_ = true;
  if (state == Watcher::State::lost) watcherLost_ = true;
}

}  // namespace tarsil::detail
