#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>

#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/runtime/detail/Alarm.hpp"
#include "tarsil/runtime/detail/FileDescriptor.hpp"
#include "tarsil/runtime/detail/VirtualClock.hpp"
#include "tarsil/runtime/detail/Watcher.hpp"

namespace tarsil::detail {

/// Holds what is to happen on a run loop or on the worker threads: work that was handed over, alarms by the
/// time at which they ring, and watched descriptors. Threads wait for it and take one thing at a time; what
/// they took is theirs alone. Any thread; no lock is held while something runs.
class Reactor {
 public:
  /// Lives by the machine's clock, or by a virtual one: then nobody waits for it, and it is only asked.
  explicit Reactor(std::shared_ptr<const VirtualClock> clock = nullptr);
  ~Reactor();
  Reactor(const Reactor&) = delete;
  Reactor& operator=(const Reactor&) = delete;

  Clock::Instant now() const;
  bool isVirtual() const { return clock_ != nullptr; }

  void post(Work work);

  /// The alarm rings at `at`; it must not be scheduled already.
  void schedule(std::shared_ptr<Alarm> alarm, Clock::Instant at);
  /// Does nothing when the alarm is not scheduled.
  void unschedule(const Alarm& alarm);

  using WatchId = std::uint64_t;
  /// Reports the descriptor once it is readable. None for a descriptor that the system cannot wait for (a
  /// regular file).
  std::optional<WatchId> watch(int descriptor, std::shared_ptr<Watcher> watcher);
  void rearm(int descriptor, WatchId id);
  void unwatch(int descriptor, WatchId id);

  /// Readable exactly while something is due.
  int descriptor() const { return epoll_.get(); }

  /// What a waiting thread was woken for.
  struct Event {
    WatchId id;
  };
  /// Waits for up to `timeout` milliseconds, for ever when it is negative. None after the time-out.
  std::optional<Event> wait(int timeout) const;
  /// Takes what the event announced; empty when another thread was faster.
  Work take(const Event& event);

  /// The oldest work; empty when there is none.
  Work takeWork();
  /// The ringing of the first alarm that is due at `now`; empty when none is.
  Work takeAlarm(Clock::Instant now);
  /// The report of a descriptor that is readable now; empty when none is.
  Work takeReadable();

  std::size_t workCount() const;
  std::size_t watchCount() const;
  /// When, and as the how manieth of all, the next alarm rings.
  struct AlarmKey {
    Clock::Instant at;
    std::uint64_t order;
    auto operator<=>(const AlarmKey&) const = default;
  };
  std::optional<AlarmKey> firstAlarm() const;

  /// Drops everything, for good.
  void abandon();

 private:
  void signalWork(bool due);
  void armTimer();

  const std::shared_ptr<const VirtualClock> clock_;
  FileDescriptor epoll_;
  FileDescriptor workSignal_;
  FileDescriptor timer_;

  mutable std::mutex mutex_;
  bool abandoned_ = false;
  std::deque<Work> work_;
  std::map<AlarmKey, std::shared_ptr<Alarm>> alarms_;
  Clock::Instant armedFor_ = Clock::Instant::max();
  WatchId lastWatch_;
  std::unordered_map<WatchId, std::shared_ptr<Watcher>> watchers_;
};

}  // namespace tarsil::detail
