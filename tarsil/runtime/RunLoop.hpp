#pragma once

#include "tarsil/support/cpp20.hpp"

#include <functional>
#include <memory>

#include "tarsil/runtime/Clock.hpp"

namespace tarsil {

/// One thread's loop: it fires the thread's timers, handles its descriptors and, on the main thread, delivers
/// the main queue. There is one per thread that asks for it, alive until the thread ends.
///
/// The host owns the main thread. It either runs the loop (`run()`), or keeps a loop of its own: it polls
/// `descriptor()` for reading and calls `processDue()` when it is readable.
class RunLoop {
 public:
  /// The loop of the thread that started the process. May be taken on any thread; only `stop()` may be called
  /// from another thread than the loop's own.
  static RunLoop& main();
  /// The calling thread's loop.
  static RunLoop& current();
  /// True on the thread that started the process. (Under `VirtualTime` the work of other queues runs on that
  /// thread too; there the answer, like `current()`, goes by whose work is running.)
  static bool isMainThread();

  RunLoop(const RunLoop&) = delete;
  RunLoop& operator=(const RunLoop&) = delete;

  /// Processes what becomes due until `stop()`. Under `VirtualTime` the clock jumps from one timer to the
  /// next; with neither a timer nor a descriptor left nothing could ever happen again, and the process stops.
  void run();
  /// As `run()`, and returns at the latest when `timeout` has passed. False when it returned for the
  /// time-out.
  bool runFor(Duration timeout);
  /// As `run()`, until `condition` holds: it is asked after everything that was processed. False when
  /// `timeout` passed or `stop()` came first.
  bool runUntil(const std::function<bool()>& condition, Duration timeout);
  /// Lets the innermost `run` return after the call that it is making; what else is due waits for the next
  /// `run`. Does nothing when none is running. Any thread.
  void stop();

  /// Readable exactly while something is due (a queued call, a timer, a descriptor). Belongs to the loop.
  /// Says nothing under `VirtualTime`, where nobody waits.
  int descriptor() const;
  /// Processes everything that is due now, and never waits. What becomes due meanwhile is left for the next
  /// call, for which `descriptor()` is readable at once. An exception of a handler passes out; the rest stays
  /// due.
  void processDue();

  class Implementation;
  Implementation& implementation() { return *implementation_; }

 private:
  explicit RunLoop(std::unique_ptr<Implementation> implementation);
  ~RunLoop();
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tarsil
