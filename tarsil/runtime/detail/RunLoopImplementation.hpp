#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/detail/MachineReactor.hpp"

namespace tarsil {

/// What stands behind a run loop.
class RunLoop::Implementation {
 public:
  static Implementation& of(RunLoop& loop) { return *loop.implementation_; }

  enum class Thread { main, other };
  /// `Thread::other` means the calling one.
  explicit Implementation(Thread thread);
  ~Implementation();
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  /// Where the loop's work and timers belong: its own reactor, or the main one of a `VirtualTime`.
  std::shared_ptr<detail::Reactor> reactor() const;
  /// Readable while something is due in its own reactor.
  int descriptor() const { return reactor_->descriptor(); }

  enum class Ended { stopped, conditionHeld, timedOut };
  /// Runs until `stop()`, until `condition` holds if there is one, or until `end`.
  Ended run(const std::function<bool()>& condition, Clock::Instant end);
  void stop();
  void processDue();

 private:
  class Run;

  bool isOnItsThread() const;
  static void lookAround();
  void beginRound();
  Work takeDue();
  bool waitUntil(Clock::Instant end) const;

  const bool isMain_;
  const std::thread::id thread_;
  const std::shared_ptr<detail::MachineReactor> reactor_ =
      std::make_shared<detail::MachineReactor>(detail::MachineReactor::Served::byItsThread);

  /// What is left of the round: what was due when it began. Whatever comes later waits for the next round, so
  /// that nothing can keep the rest from its turn.
  std::size_t workLeft_ = 0;
  std::size_t readableLeft_ = 0;
  Clock::Instant roundBegan_;

  std::mutex runMutex_;
  Run* innermost_ = nullptr;
};

}  // namespace tarsil
