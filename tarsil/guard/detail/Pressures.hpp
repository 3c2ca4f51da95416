#pragma once

#include <functional>
#include <optional>

#include "tarsil/runtime/Clock.hpp"

namespace tarsil::detail {

/// One blood-pressure measurement after the other, in an order that no driver stumbles over: begun, waited
/// for, fetched. A built-in cuff shares its line and its driver with the exercise, so polls wait while its
/// commands are under way. Main thread; its owner calls `tick` once a second.
class Pressures {
 public:
  /// How one kind of cuff is asked.
  struct Cuff {
    std::function<void()> start;
    /// Asks for the result.
    std::function<void()> fetch;
    std::function<void()> abort;
    /// From the start to the first try to fetch the result; a monitor sends it by itself before.
    Duration measuring{};
    /// The commands of a built-in cuff: nothing else may be asked meanwhile.
    Duration commandTime{};
  };

  Pressures(Cuff cuff, std::function<void()> missing);

  /// Begins with the next tick: a poll of just now may still be under way.
  void measure() { isWanted_ = true; }
  void abort();
  /// What was sent to begin it may have come to nothing: begins anew with a later tick.
  void beginAgain();
  bool isMeasuring() const { return isWanted_ || startedAt_; }
  /// A result may be heard now: what comes earlier is an old one.
  bool isExpected() const;
  void tick();
  /// A plausible result came.
  void measured();
  /// Polls of the exercise device, and its loads, wait.
  bool holdsLine() const;

 private:
  void start();

  const Cuff cuff_;
  const std::function<void()> missing_;
  bool isWanted_ = false;
  std::optional<Clock::Instant> startedAt_;
  std::optional<Clock::Instant> fetchedAt_;
  int fetches_ = 0;
};

}  // namespace tarsil::detail
