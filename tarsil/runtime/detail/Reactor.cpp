#include "tarsil/runtime/detail/Reactor.hpp"

#include <algorithm>
#include <limits>
#include <utility>

namespace tarsil::detail {

void Reactor::post(Work work) {
  const std::lock_guard lock(mutex_);
  if (abandoned_) return;
  work_.push_back(std::move(work));
  if (hasWork_.exchange(true)) return;
  workCame();
}

void Reactor::schedule(std::shared_ptr<Alarm> alarm, Clock::Instant at) {
  const std::lock_guard lock(mutex_);
  if (abandoned_) return;
  alarm->at_ = at;
  const AlarmKey key{at, alarm->order_};
  alarms_.emplace(key, std::move(alarm));
  alarmsChanged();
}

void Reactor::unschedule(const Alarm& alarm) {
  const std::lock_guard lock(mutex_);
  if (alarms_.erase({alarm.at_, alarm.order_}) == 0) return;
  alarmsChanged();
}

std::optional<Reactor::WatchId> Reactor::watch(int descriptor, std::shared_ptr<Watcher> watcher,
                                               Writer writer) {
  const std::lock_guard lock(mutex_);
  if (abandoned_) return std::nullopt;
  const WatchId id = nextWatch_++;
  if (!descriptors_.addOnce(descriptor, id)) return std::nullopt;
  auto arrivals = writer == Writer::machine ? machineNews_ : Arrivals::announcedFor(descriptor);
  watches_.emplace(id, Watch{descriptor, std::move(watcher), std::move(arrivals)});
  return id;
}

void Reactor::rearm(WatchId id) {
  const std::lock_guard lock(mutex_);
  const auto entry = watches_.find(id);
  if (entry == watches_.end()) return;
  entry->second.armed = true;
  descriptors_.rearm(entry->second.descriptor, id);
}

void Reactor::unwatch(WatchId id) {
  std::shared_ptr<Watcher> removed;
  const std::lock_guard lock(mutex_);
  const auto entry = watches_.find(id);
  if (entry == watches_.end()) return;
  descriptors_.remove(entry->second.descriptor);
  removed = std::move(entry->second.watcher);
  watches_.erase(entry);
}

Work Reactor::takeWork() {
  if (!hasWork_) return {};
  const std::lock_guard lock(mutex_);
  if (work_.empty()) return {};
  Work work = std::move(work_.front());
  work_.pop_front();
  hasWork_ = !work_.empty();
  workWasTaken(hasWork_);
  return work;
}

Work Reactor::takeAlarm(Clock::Instant now) {
  const std::lock_guard lock(mutex_);
  const auto first = firstAt();
  if (first > now || first == never) return {};
  auto alarm = extractFirstAlarm();
  // Told even when the next one rings at the same time: who was told of this one has come.
  tellOfFirstAlarm();
  return [alarm = std::move(alarm)] { alarm->ring(); };
}

Reactor::Round Reactor::beginRound(Clock::Instant now, Clock::Instant helpAt) {
  const std::lock_guard lock(mutex_);
  const auto at = firstAt();
  if (at > now || at == never) return {nullptr, at};
  auto first = extractFirstAlarm();
  roundAt_ = at;
  helpAt_ = helpAt;
  tellOfFirstAlarm();
  return {std::move(first), at};
}

std::shared_ptr<Alarm> Reactor::nextOfRound(Clock::Instant at) {
  const std::lock_guard lock(mutex_);
  if (firstAt() != at) return nullptr;
  auto next = extractFirstAlarm();
  alarmsChanged();
  return next;
}

Work Reactor::takeReport(WatchId id, bool hungUp) {
  const std::lock_guard lock(mutex_);
  const auto entry = watches_.find(id);
  if (entry == watches_.end()) return {};
  entry->second.armed = false;
  return [watcher = entry->second.watcher, hungUp] { watcher->ready(hungUp); };
}

std::size_t Reactor::workCount() const {
  const std::lock_guard lock(mutex_);
  return work_.size();
}

std::size_t Reactor::watchCount() const {
  const std::lock_guard lock(mutex_);
  return watches_.size();
}

std::optional<Reactor::AlarmKey> Reactor::firstAlarm() const {
  const std::lock_guard lock(mutex_);
  if (firstAt() == never) return std::nullopt;
  return alarms_.begin()->first;
}

void Reactor::abandon() {
  {
    const std::lock_guard lock(mutex_);
    abandoned_ = true;
  }
  drop();
}

bool Reactor::drop() {
  std::deque<Work> work;
  std::map<AlarmKey, std::shared_ptr<Alarm>> alarms;
  std::map<WatchId, Watch> watches;
  {
    const std::lock_guard lock(mutex_);
    work.swap(work_);
    hasWork_ = false;
    alarms.swap(alarms_);
    watches.swap(watches_);
  }
  for (const auto& [key, alarm] : alarms) alarm->abandon();
  return !work.empty() || !alarms.empty() || !watches.empty();
}

Clock::Instant Reactor::firstAt() const {
  return alarms_.empty() ? never : alarms_.begin()->first.at;
}

// Of what is left of a round that has begun, late; of whatever else rings, in time.
Clock::Instant Reactor::firstToTellOf() const {
  if (firstAt() != roundAt_) return firstAt();
  const auto behind = alarms_.upper_bound({roundAt_, std::numeric_limits<std::uint64_t>::max()});
  return behind == alarms_.end() ? helpAt_ : std::min(helpAt_, behind->first.at);
}

std::shared_ptr<Alarm> Reactor::extractFirstAlarm() {
  return std::move(alarms_.extract(alarms_.begin()).mapped());
}

void Reactor::tellOfAlarmsAgain() {
  const std::lock_guard lock(mutex_);
  tellOfFirstAlarm();
}

void Reactor::alarmsChanged() {
  if (firstToTellOf() != announcedAlarm_) tellOfFirstAlarm();
}

void Reactor::tellOfFirstAlarm() {
  announcedAlarm_ = firstToTellOf();
  firstAlarmIsAt(announcedAlarm_);
}

}  // namespace tarsil::detail
