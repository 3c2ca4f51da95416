#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <tuple>

#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/runtime/detail/Arrivals.hpp"
#include "tarsil/runtime/detail/systemEvents.hpp"

namespace tarsil::detail {

/// Somebody who waits for a descriptor to become readable.
class Watcher {
 public:
  virtual ~Watcher() = default;
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  /// The descriptor is readable or hung up; it is not looked at again until `Reactor::rearm`. No lock is
  /// held.
  virtual void ready(bool hungUp) = 0;

 protected:
  Watcher() = default;
};

/// Something that falls due at an instant. Alarms of one instant ring in the order of their creation.
class Alarm {
 public:
  virtual ~Alarm() = default;
  Alarm(const Alarm&) = delete;
  Alarm& operator=(const Alarm&) = delete;

  /// The reactor has let go of the alarm and no lock is held.
  virtual void ring() = 0;
  /// The reactor ends; the alarm will not ring.
  virtual void abandon() {}

 protected:
  Alarm() = default;

 private:
  friend class Reactor;
  static std::uint64_t nextOrder() {
    static std::atomic<std::uint64_t> count = 0;
    return count++;
  }
  const std::uint64_t order_ = nextOrder();
  /// Guarded by the reactor.
  Clock::Instant at_;
};

/// Holds what is to happen on a run loop or on the worker threads: work that was handed over, alarms by the
/// time at which they ring, and watched descriptors. Whoever serves the reactor takes one thing at a time and
/// runs it. Any thread; no lock is held while something runs.
class Reactor {
 public:
  virtual ~Reactor() = default;
  Reactor(const Reactor&) = delete;
  Reactor& operator=(const Reactor&) = delete;

  virtual Clock::Instant now() const = 0;
  /// True when time stands still while something runs, and one thread serves everything.
  virtual bool isVirtual() const = 0;

  void post(Work work);

  /// An alarm at the end of time is kept, and does not ring.
  static constexpr Clock::Instant never = Clock::Instant::max();
  /// The alarm rings at `at`; it must not be scheduled already.
  void schedule(std::shared_ptr<Alarm> alarm, Clock::Instant at);
  /// Does nothing when the alarm is not scheduled. Whoever asks holds it: it does not end here, under the
  /// lock.
  void unschedule(const Alarm& alarm);

  using WatchId = DescriptorSet::Id;
  /// Who writes to a descriptor: the machine's news need not be in time on a clock that is not the machine's.
  enum class Writer { anybody, machine };
  /// Reports the descriptor once, as soon as it is readable. None for a descriptor that the system cannot
  /// wait for (a regular file); any other failure stops the process.
  std::optional<WatchId> watch(int descriptor, std::shared_ptr<Watcher> watcher,
                               Writer writer = Writer::anybody);
  /// Reports it once more.
  void rearm(WatchId id);
  void unwatch(WatchId id);

  /// The oldest work; empty when there is none.
  Work takeWork();
  /// The ringing of the first alarm, when it is due at `now`; empty when none is.
  Work takeAlarm(Clock::Instant now);
  /// The report of a descriptor that is readable now; empty when none is.
  virtual Work takeReadable() = 0;

  std::size_t workCount() const;
  std::size_t watchCount() const;

  /// When, and in which place among all that were ever made, the next alarm rings.
  struct AlarmKey {
    Clock::Instant at;
    std::uint64_t order;
    bool operator<(const AlarmKey& other) const {
      return std::tie(at, order) < std::tie(other.at, other.order);
    }
  };
  std::optional<AlarmKey> firstAlarm() const;

  /// Drops everything that it holds and whatever comes later.
  void abandon();

 protected:
  struct Watch {
    int descriptor;
    std::shared_ptr<Watcher> watcher;
    /// Null where anything may come at any time.
    std::shared_ptr<Arrivals> arrivals;
    /// False from a report until the next `rearm`.
    bool armed = true;
  };
  /// Watches are numbered from here on.
  static constexpr WatchId firstWatch = 16;

  Reactor() = default;

  /// Drops everything that it holds, without a call; false when it held nothing.
  bool drop();

  /// The alarms of one instant, which one thread rings one after the other.
  struct Round {
    std::shared_ptr<Alarm> first;
    Clock::Instant at;
  };
  /// The round that is due at `now`, its first alarm taken already; `first` is null when none is due. Nobody
  /// is told of the others before `helpAt`: should one of them block its thread, another goes on from then.
  Round beginRound(Clock::Instant now, Clock::Instant helpAt);
  /// Takes another alarm of the round that rings at `at`; null when it is over.
  std::shared_ptr<Alarm> nextOfRound(Clock::Instant at);

  /// The report of a watched descriptor that is readable; empty when it is watched no more.
  Work takeReport(WatchId id, bool hungUp);

  // Called under the lock.
  /// Work has come where there was none.
  virtual void workCame() = 0;
  /// One piece of it was taken.
  virtual void workWasTaken(bool moreIsLeft) = 0;
  /// The first alarm is to be told of at another time now, or `never`. To be told for nothing does no harm.
  virtual void firstAlarmIsAt(Clock::Instant at) = 0;

  /// As if nobody had been told of the first alarm.
  void tellOfAlarmsAgain();

  mutable std::mutex mutex_;
  std::map<WatchId, Watch> watches_;
  const std::shared_ptr<Arrivals> machineNews_ = std::make_shared<Arrivals>();
  /// Knows every watched descriptor under its id, armed for one report.
  DescriptorSet descriptors_;

 private:
  Clock::Instant firstAt() const;
  Clock::Instant firstToTellOf() const;
  std::shared_ptr<Alarm> extractFirstAlarm();
  void alarmsChanged();
  void tellOfFirstAlarm();

  bool abandoned_ = false;
  std::deque<Work> work_;
  /// What an idle reactor is asked most, answered without the lock.
  std::atomic<bool> hasWork_ = false;
  std::map<AlarmKey, std::shared_ptr<Alarm>> alarms_;
  Clock::Instant announcedAlarm_ = never;
  /// The round that a thread has begun, and when others are told of what is left of it.
  Clock::Instant roundAt_ = never;
  Clock::Instant helpAt_ = never;
  WatchId nextWatch_ = firstWatch;
};

}  // namespace tarsil::detail
