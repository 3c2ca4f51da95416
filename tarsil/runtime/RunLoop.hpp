#pragma once

#include "tarsil/support/cpp20.hpp"

#include <functional>
#include <memory>

#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/runtime/Observation.hpp"

namespace tarsil {

/// One thread's loop: it fires the thread's timers, handles its descriptors and, on the main thread, delivers
/// the main queue. There is one per thread that asks for it, alive until the thread ends.
///
/// The host owns the main thread. It either runs the loop (`run()`), or keeps a loop of its own: it polls
/// `descriptor()` for reading and calls `processDue()` when it is readable.
class RunLoop {
 public:
  /// The loop of the thread that started the process. May be taken on any thread; only `stop()` and
  /// `perform()` may be called from another thread than the loop's own.
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

  /// Runs the work on the loop's thread when the loop processes what is due, in the order in which it came;
  /// after the thread has ended, never. Any thread. An exception that leaves the work passes out of the loop.
  void perform(Work work);
  /// What `perform` does, for those who may outlive the thread: this loop's `perform` for any thread at any
  /// time.
  std::function<void(Work)> performer();

  /// Runs the work on the loop's thread each time that the descriptor is readable or hung up, until the
  /// observation is dropped, which happens on the loop's thread and before the descriptor is closed. The work
  /// reads what there is, or it comes again at once. A regular file is never reported; to watch a descriptor
  /// that is watched already stops the process. Meant for the machine's own news: under `VirtualTime`, whose
  /// clock the machine does not share, the descriptor is asked whenever somebody moves the time, and ten
  /// times a second of it. On the loop's thread.
  [[nodiscard]] Observation watch(int descriptor, Work work);

  class Implementation;

 private:
  explicit RunLoop(std::unique_ptr<Implementation> implementation);
  ~RunLoop();
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tarsil
