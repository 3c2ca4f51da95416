#include "tarsil/guard/detail/LoadJudge.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace tarsil::detail {
namespace {

using namespace std::chrono_literals;

// The slowest belts and brakes change by this much a second; faster ones are judged as kindly.
constexpr float slowestBelt = 0.4F;   // km/h
constexpr float slowestGrade = 0.4F;  // percent
constexpr float slowestBrake = 5.0F;  // W

/// Commands, adapters and the next poll take their time.
constexpr Duration grace = 3s;

/// What is forgotten later than this could not matter any more: from end to end no device needs longer.
constexpr Duration longestWay = 90s;

// How far a report may be off: the model's own steps, its measuring, its miles.
constexpr float speedTolerance = 0.4F;
constexpr float gradeTolerance = 1.5F;
constexpr float powerTolerance = 10.0F;

/// Started belts move at their slowest speed before they are told any.
constexpr float firstSpeed = 1.6F;

Duration timeFor(float change, float perSecond) {
  return grace + std::chrono::duration_cast<Duration>(
                     std::chrono::duration<double>(std::abs(static_cast<double>(change)) / perSecond));
}

}  // namespace

void LoadJudge::begin(Clock::Instant now) {
  told_.clear();
  told_.push_back({{}, now, std::nullopt});
}

void LoadJudge::told(const Load& load, Clock::Instant now) {
  if (told_.empty()) begin(now);
  told_.back().until = now;
  told_.push_back({load, now, std::nullopt});
  forgetOld(now);
}

void LoadJudge::forgetOld(Clock::Instant now) {
  while (told_.size() > 1 && now - *told_.front().until > longestWay) told_.pop_front();
}

/// From the lowest to the highest of what it was told last and what it may still be leaving.
LoadJudge::Range LoadJudge::expected(float Load::*quantity, float slowestChange, Clock::Instant now) const {
  const float last = told_.back().load.*quantity;
  Range range{last, last};
  for (const Told& told : told_) {
    if (!told.until) continue;
    const float value = told.load.*quantity;
    if (now - *told.until > timeFor(value - last, slowestChange)) continue;
    range.lowest = std::min(range.lowest, value);
    range.highest = std::max(range.highest, value);
  }
  return range;
}

LoadJudge::Verdict LoadJudge::judge(const Load& reported, Clock::Instant now) const {
  if (told_.empty()) return Verdict::agrees;
  const Range speed = expected(&Load::speed, slowestBelt, now);
  const Range grade = expected(&Load::grade, slowestGrade, now);
  const Range power = expected(&Load::power, slowestBrake, now);

  if (reported.speed > std::max(speed.highest, firstSpeed) + speedTolerance ||
      reported.power > power.highest + powerTolerance + 0.05F * power.highest) {
    return Verdict::exceeds;
  }
  const bool shouldMove = speed.lowest > speedTolerance || power.lowest > powerTolerance;
  if (shouldMove && reported.speed == 0 && reported.power == 0) return Verdict::stands;
  if (reported.speed < speed.lowest - speedTolerance ||
      reported.power < power.lowest - powerTolerance - 0.05F * power.lowest ||
      reported.grade < grade.lowest - gradeTolerance || reported.grade > grade.highest + gradeTolerance) {
    return Verdict::differs;
  }
  return Verdict::agrees;
}

}  // namespace tarsil::detail
