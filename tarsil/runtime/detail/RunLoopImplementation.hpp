#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>

#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/detail/Reactor.hpp"

namespace tarsil {

/// What stands behind a run loop.
class RunLoop::Implementation {
 public:
  /// The loop of the thread with this id.
  explicit Implementation(pid_t thread) : thread_(thread) {}
  ~Implementation();
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  /// What the loop waits for: its own reactor, or the main one of a `VirtualTime`.
  const std::shared_ptr<detail::Reactor>& reactor() const;

  enum class Ended { stopped, conditionHeld, timedOut };
  /// Runs until `stop()`, until `condition` holds if there is one, or until `end`.
  Ended run(const std::function<bool()>& condition, Clock::Instant end);
  void stop();
  void processDue();

 private:
  class Run;

  bool isMain() const;
  void beginRound();
  Work takeDue();
  bool waitUntil(Clock::Instant end) const;

  const pid_t thread_;
  const std::shared_ptr<detail::Reactor> reactor_ = std::make_shared<detail::Reactor>();

  /// What is left of the round: what was due when it began. Whatever comes later waits for the next round, so
  /// that nothing can keep the rest from its turn.
  std::size_t workLeft_ = 0;
  std::size_t readableLeft_ = 0;
  Clock::Instant roundBegan_;

  std::mutex runMutex_;
  Run* innermost_ = nullptr;
};

}  // namespace tarsil
