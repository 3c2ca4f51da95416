#pragma once

#include <functional>
#include <memory>

#include "tarsil/runtime/Clock.hpp"

namespace tarsil {

class RunLoop;

/// A timer of a run loop. The loop keeps a scheduled timer alive until it has fired for the last time or is
/// invalidated. Timers that fall due together fire in the order of their creation. A repeating timer keeps
/// its beat: it fires at whole multiples of its interval (0.1 ms at the least), beats that were missed
/// are left out, and it does not fire within its own action.
class Timer : public std::enable_shared_from_this<Timer> {
 public:
  /// Fires on the calling thread's run loop, first after `interval`.
  static std::shared_ptr<Timer> scheduled(Duration interval, bool repeats,
                                          std::function<void(Timer&)> action);
  /// The same on a loop of the caller's choice. Call it on that loop's thread.
  static std::shared_ptr<Timer> scheduledOn(RunLoop& loop, Duration interval, bool repeats,
                                            std::function<void(Timer&)> action);
  /// A timer that no loop knows; it never fires.
  static std::shared_ptr<Timer> unscheduled();

  ~Timer();
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  /// The timer never fires again and lets go of its action. Call it on the loop's thread; calling it again
  /// does nothing.
  void invalidate();
  /// False once the timer was invalidated or has begun to fire for the last time. On the loop's thread.
  bool isValid() const;

 private:
  struct Key {};

 public:
  explicit Timer(Key);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace tarsil
