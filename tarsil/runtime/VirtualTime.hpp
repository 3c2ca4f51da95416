#pragma once

#include <chrono>
#include <memory>

#include "tarsil/runtime/Clock.hpp"

namespace tarsil {

/// While it exists, time stands still until somebody moves it, and the whole library runs on the thread that
/// made it, in one repeatable order: the main queue's work first, then the other queues' in the order in
/// which it came, then readable descriptors, then timers by due time and creation. Simulations and tests run
/// twenty minutes of exercise in milliseconds this way, every timer exact.
/// Make it on the main thread before any source or timer exists, and drop it after the last one: what exists
/// before goes on in the machine's time, on its own threads, and what is still queued at the end is dropped
/// without a call, and so is whatever that sets off. Work that waits for another queue (`sync`) runs that
/// work in place, after what was queued there before it. An exception of a handler passes out of the call
/// that moves the time; everything else stays as it was, and the next call goes on.
class VirtualTime {
 public:
  /// 2024-03-01 14:05:09 local time, a day like any other.
  VirtualTime();
  explicit VirtualTime(std::chrono::system_clock::time_point wallStart);
  ~VirtualTime();
  VirtualTime(const VirtualTime&) = delete;
  VirtualTime& operator=(const VirtualTime&) = delete;

  /// Runs everything that is due at this instant, until nothing is.
  void settle();
  /// Moves the clock by `duration`, stopping at every timer on the way: each fires at its exact time, and
  /// everything that it sets off is settled before the clock moves on.
  void advance(Duration duration);

  class Implementation;

 private:
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tarsil
