#pragma once

#include "tarsil/runtime/DispatchQueue.hpp"

namespace tarsil::detail {

/// Says, for as long as it lives, that work of a queue runs on this thread.
class CurrentQueue {
 public:
  /// Where the work came from: a reactor, where on the machine's own clock a worker thread would have taken
  /// it; or from a `sync` of work that waits further down on this thread's stack.
  enum class Origin { reactor, sync };

  CurrentQueue(const DispatchQueue::Implementation& queue, Origin origin);
  ~CurrentQueue();
  CurrentQueue(const CurrentQueue&) = delete;
  CurrentQueue& operator=(const CurrentQueue&) = delete;

  /// The queue whose work runs innermost; null when none does.
  static const DispatchQueue::Implementation* innermost();
  /// True when work of `queue` runs on this thread, even if it waits there for other work.
  static bool contains(const DispatchQueue::Implementation& queue);
  /// True when the innermost work runs on behalf of `queue`, or of nobody, by way of `sync` alone.
  static bool waitsFor(const DispatchQueue::Implementation& queue);

 private:
  const DispatchQueue::Implementation& queue_;
  const Origin origin_;
  const CurrentQueue* const outer_;
};

}  // namespace tarsil::detail
