#pragma once

#include <chrono>
#include <memory>

#include "tarsil/runtime/VirtualTime.hpp"
#include "tarsil/runtime/detail/VirtualReactor.hpp"

namespace tarsil {

/// A world of its own: a clock, a reactor for the main thread and one for everything else, and nobody but the
/// calling thread to work them off.
class VirtualTime::Implementation {
 public:
  explicit Implementation(std::chrono::system_clock::time_point wallStart);
  ~Implementation();
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  /// The one that exists; null when time is the machine's.
  static Implementation* current();

  Clock::Instant now() const { return clock_->now(); }
  std::chrono::system_clock::time_point wallNow() const;
  std::shared_ptr<detail::Reactor> mainReactor() const { return main_; }
  std::shared_ptr<detail::Reactor> backgroundReactor() const { return background_; }

  /// The next thing that is due at this instant; empty when nothing is.
  Work takeDue();
  void settle();
  void advanceTo(Clock::Instant end);

  /// Moves the clock to the next alarm, or to `end` when none rings until then. False for `end`.
  bool jump(Clock::Instant end);
  bool hasAlarm() const;
  /// Somebody moves the time: the machine may have had news meanwhile.
  void lookAround();

  /// Waits, in the machine's time, until a descriptor is readable. False when none is watched.
  bool waitForDescriptor();

 private:
  detail::Reactor& withFirstAlarm() const;

  Clock::Instant nextLook_ = Clock::Instant::min();

  const std::chrono::system_clock::time_point wallStart_;
  const std::shared_ptr<detail::VirtualClock> clock_ = std::make_shared<detail::VirtualClock>();
  const std::shared_ptr<detail::VirtualReactor> main_ = std::make_shared<detail::VirtualReactor>(clock_);
  const std::shared_ptr<detail::VirtualReactor> background_ =
      std::make_shared<detail::VirtualReactor>(clock_);
};

}  // namespace tarsil
