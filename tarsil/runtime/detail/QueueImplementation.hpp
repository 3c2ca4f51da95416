#pragma once

#include <memory>

#include "tarsil/runtime/DispatchQueue.hpp"

namespace tarsil {

namespace detail {
class Reactor;
}

/// What stands behind a queue handle. Any thread.
class DispatchQueue::Implementation {
 public:
  virtual ~Implementation() = default;
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  static Implementation& of(const DispatchQueue& queue) { return *queue.implementation_; }

  virtual void async(Work work) = 0;
  virtual void sync(const Work& work) = 0;
  virtual bool isCurrent() const = 0;

  /// What waits for the events of this queue's sources.
  virtual std::shared_ptr<detail::Reactor> reactor() const = 0;
  /// Runs the work for which a thread of `reactor()` woke: on that very thread where the queue allows it.
  virtual void deliver(Work work) = 0;

 protected:
  Implementation() = default;
};

}  // namespace tarsil
