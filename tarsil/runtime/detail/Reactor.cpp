#include "tarsil/runtime/detail/Reactor.hpp"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <system_error>
#include <utility>

#include "tarsil/support/process.hpp"

namespace tarsil::detail {
namespace {

// The reactor's own two descriptors; watches count on from here.
constexpr Reactor::WatchId workId = 0;
constexpr Reactor::WatchId timerId = 1;

int succeeded(int result, const char* call) {
  if (result >= 0) return result;
  fatalError(std::string(call) + ": " + std::generic_category().message(errno));
}

int control(int epoll, int operation, int descriptor, std::uint32_t events, Reactor::WatchId id) {
  epoll_event event{};
  event.events = events;
  event.data.u64 = id;
  return epoll_ctl(epoll, operation, descriptor, &event);
}

// One-shot, so that a descriptor whose handler runs wakes nobody else.
constexpr std::uint32_t watchedEvents = EPOLLIN | EPOLLONESHOT;

}  // namespace

Reactor::Reactor(std::shared_ptr<const VirtualClock> clock)
    : clock_(std::move(clock)),
      epoll_(succeeded(epoll_create1(EPOLL_CLOEXEC), "epoll_create1")),
      lastWatch_(timerId) {
  if (isVirtual()) return;
  workSignal_ = FileDescriptor(succeeded(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd"));
  timer_ = FileDescriptor(
      succeeded(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "timerfd_create"));
  succeeded(control(epoll_.get(), EPOLL_CTL_ADD, workSignal_.get(), EPOLLIN, workId), "epoll_ctl");
  succeeded(control(epoll_.get(), EPOLL_CTL_ADD, timer_.get(), EPOLLIN, timerId), "epoll_ctl");
}

Reactor::~Reactor() {
  abandon();
}

Clock::Instant Reactor::now() const {
  if (isVirtual()) return clock_->now();
  return Clock::Instant(std::chrono::steady_clock::now().time_since_epoch());
}

void Reactor::post(Work work) {
  const std::lock_guard lock(mutex_);
  if (abandoned_) return;
  work_.push_back(std::move(work));
  if (work_.size() == 1) signalWork(true);
}

void Reactor::schedule(std::shared_ptr<Alarm> alarm, Clock::Instant at) {
  const std::lock_guard lock(mutex_);
  if (abandoned_) return;
  alarm->at_ = at;
  const AlarmKey key{at, alarm->order_};
  alarms_.emplace(key, std::move(alarm));
  armTimer();
}

void Reactor::unschedule(const Alarm& alarm) {
  // The alarm may die with its entry, and then runs code of its own: not under the lock.
  std::shared_ptr<Alarm> removed;
  const std::lock_guard lock(mutex_);
  const auto entry = alarms_.find({alarm.at_, alarm.order_});
  if (entry == alarms_.end()) return;
  removed = std::move(entry->second);
  alarms_.erase(entry);
  armTimer();
}

std::optional<Reactor::WatchId> Reactor::watch(int descriptor, std::shared_ptr<Watcher> watcher) {
  const std::lock_guard lock(mutex_);
  if (abandoned_) return std::nullopt;
  const WatchId id = ++lastWatch_;
  if (control(epoll_.get(), EPOLL_CTL_ADD, descriptor, watchedEvents, id) < 0) {
    if (errno == EPERM) return std::nullopt;
    fatalError("cannot watch descriptor " + std::to_string(descriptor) + ": " +
               std::generic_category().message(errno));
  }
  watchers_.emplace(id, std::move(watcher));
  return id;
}

void Reactor::rearm(int descriptor, WatchId id) {
  control(epoll_.get(), EPOLL_CTL_MOD, descriptor, watchedEvents, id);
}

void Reactor::unwatch(int descriptor, WatchId id) {
  std::shared_ptr<Watcher> removed;
  const std::lock_guard lock(mutex_);
  const auto entry = watchers_.find(id);
  if (entry == watchers_.end()) return;
  control(epoll_.get(), EPOLL_CTL_DEL, descriptor, 0, id);
  removed = std::move(entry->second);
  watchers_.erase(entry);
}

std::optional<Reactor::Event> Reactor::wait(int timeout) const {
  epoll_event event{};
  if (epoll_wait(epoll_.get(), &event, 1, timeout) <= 0) return std::nullopt;
  return Event{event.data.u64};
}

Work Reactor::take(const Event& event) {
  if (event.id == workId) return takeWork();
  if (event.id == timerId) return takeAlarm(now());
  const std::lock_guard lock(mutex_);
  const auto entry = watchers_.find(event.id);
  if (entry == watchers_.end()) return {};
  return [watcher = entry->second] { watcher->ready(); };
}

Work Reactor::takeWork() {
  const std::lock_guard lock(mutex_);
  if (work_.empty()) return {};
  Work work = std::move(work_.front());
  work_.pop_front();
  if (work_.empty()) signalWork(false);
  return work;
}

Work Reactor::takeAlarm(Clock::Instant now) {
  const std::lock_guard lock(mutex_);
  if (alarms_.empty() || alarms_.begin()->first.at > now) return {};
  auto entry = alarms_.extract(alarms_.begin());
  armTimer();
  return [alarm = std::move(entry.mapped())] { alarm->ring(); };
}

Work Reactor::takeReadable() {
  if (watchCount() == 0) return {};
  // The reactor's own two descriptors may stand in front of the watched ones; asked again, epoll goes on
  // behind them.
  for (int asked = 0; asked < 3; ++asked) {
    const auto event = wait(0);
    if (!event) return {};
    if (event->id == workId || event->id == timerId) continue;
    if (Work report = take(*event)) return report;
  }
  return {};
}

std::size_t Reactor::workCount() const {
  const std::lock_guard lock(mutex_);
  return work_.size();
}

std::size_t Reactor::watchCount() const {
  const std::lock_guard lock(mutex_);
  return watchers_.size();
}

std::optional<Reactor::AlarmKey> Reactor::firstAlarm() const {
  const std::lock_guard lock(mutex_);
  if (alarms_.empty()) return std::nullopt;
  return alarms_.begin()->first;
}

void Reactor::abandon() {
  std::deque<Work> work;
  std::map<AlarmKey, std::shared_ptr<Alarm>> alarms;
  std::unordered_map<WatchId, std::shared_ptr<Watcher>> watchers;
  {
    const std::lock_guard lock(mutex_);
    abandoned_ = true;
    work.swap(work_);
    alarms.swap(alarms_);
    watchers.swap(watchers_);
  }
  for (const auto& [key, alarm] : alarms) alarm->abandon();
}

void Reactor::signalWork(bool due) {
  if (isVirtual()) return;
  eventfd_t count = 0;
  succeeded(due ? eventfd_write(workSignal_.get(), 1) : eventfd_read(workSignal_.get(), &count), "eventfd");
}

void Reactor::armTimer() {
  if (isVirtual()) return;
  const Clock::Instant first = alarms_.empty() ? Clock::Instant::max() : alarms_.begin()->first.at;
  if (first == armedFor_) return;
  armedFor_ = first;
  itimerspec expiry{};
  if (!alarms_.empty()) {
    const auto sinceStart = first.time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(sinceStart);
    expiry.it_value.tv_sec = seconds.count();
    expiry.it_value.tv_nsec = (sinceStart - seconds).count();
  }
  succeeded(timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &expiry, nullptr), "timerfd_settime");
}

}  // namespace tarsil::detail
