#pragma once

#include <deque>
#include <optional>

#include "tarsil/guard/Load.hpp"
#include "tarsil/runtime/Clock.hpp"

namespace tarsil::detail {

/// Holds what an exercise device reports against what it was told, and against what it may still be doing on
/// its way from one load to the next.
class LoadJudge {
 public:
  enum class Verdict {
    /// It does what it was told, or may still be getting there.
    agrees,
    /// It does less, or has another grade, than it should by now.
    differs,
    /// It stands where it should move by now.
    stands,
    /// It is faster, or stronger, than anything it was told lately.
    exceeds,
  };

  /// The exercise begins, from standstill.
  void begin(Clock::Instant now);
  void told(const Load& load, Clock::Instant now);
  Verdict judge(const Load& reported, Clock::Instant now) const;

 private:
  struct Told {
    Load load;
    Clock::Instant since;
    /// When another one took its place; none for the last.
    std::optional<Clock::Instant> until;
  };
  struct Range {
    float lowest;
    float highest;
  };

  Range expected(float Load::*quantity, float slowestChange, Clock::Instant now) const;
  void forgetOld(Clock::Instant now);

  std::deque<Told> told_;
};

}  // namespace tarsil::detail
