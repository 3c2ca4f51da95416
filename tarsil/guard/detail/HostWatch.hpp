#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "tarsil/guard/watch/Watcher.hpp"
#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/DispatchSource.hpp"

namespace tarsil::detail {

/// Whether the host lives. While it is armed, a worker thread looks: a host that did not say `alive()` for a
/// heartbeat has the stop sent by that thread, again every second until it is back; and only a host that
/// lives keeps the watcher process from acting.
class HostWatch : public std::enable_shared_from_this<HostWatch> {
 public:
  /// `stop` sends the model's stop; it is called on a worker thread. `watcher` may be null. Main thread.
  void arm(Duration heartbeat, std::function<void()> stop, std::unique_ptr<Watcher> watcher);
  /// The line is another one now, and with it its watcher. While armed; main thread.
  void setWatcher(std::unique_ptr<Watcher> watcher);
  /// The watcher lets go of its line without a stop; nobody watches until `setWatcher`. Main thread.
  void releaseWatcher();
  /// The belt was seen to stand. Main thread.
  void disarm();
  /// The host ends with the belt moving: the watcher acts at once. Main thread.
  void leaveToWatcher();
  bool isArmed() const { return source_ != nullptr; }

  /// Any thread; never waits.
  void alive() { lastAlive_ = Clock::now().time_since_epoch().count(); }
  /// The host was missed since `arm`. Main thread.
  bool wasMissed() const { return missed_; }
  /// It was missed, and is back. Main thread.
  bool isBack() const;
  /// The watcher process that was armed is gone. Main thread.
  bool hasLostWatcher() const { return watcherLost_; }
  /// The watcher process acted. Main thread.
  bool hasWatcherActed() const { return watcherActed_; }

 private:
  void look();
  void lookAtWatcher(bool hostLives);
  bool isLate() const;

  Duration heartbeat_{};
  std::function<void()> stop_;
  std::shared_ptr<DispatchSource> source_;
  std::atomic<Duration::rep> lastAlive_ = 0;
  std::atomic<bool> missed_ = false;
  std::atomic<bool> watcherLost_ = false;
  std::atomic<bool> watcherActed_ = false;
  /// Worker thread only.
  std::optional<Clock::Instant> lastStop_;
  std::mutex watcherMutex_;
  std::unique_ptr<Watcher> watcher_;
};

}  // namespace tarsil::detail
