#include "tarsil/exercise/PressureSchedule.hpp"

#include <algorithm>
#include <chrono>
#include <numeric>

namespace tarsil {
namespace {

using namespace std::chrono_literals;

/// Where the protocol names no times, a measurement begins this long before its stage ends; a cuff needs 20
/// to 40 s, and a little to spare.
constexpr Duration usualTime = 60s;
constexpr Duration slowestCuff = 45s;
constexpr Duration quickestCuff = 25s;

/// Before the first update of a phase, so that a point at 0:00 is crossed by it.
constexpr Duration notYet = -1ns;

}  // namespace

void PressureSchedule::update(std::size_t phase, Duration phasePassed, Duration passed, bool isMeasuring) {
  const bool isNew = phase_ != phase;
  if (isNew) beginPhase(phase);
  const Phase::Kind kind = protocol_.phases[phase].kind;
  if (kind == Phase::Kind::stage) {
    const Duration before = exercised_;
    exercised_ += passed;
    const Duration every = protocol_.pressures.every;
    if (every > Duration::zero() && before / every != exercised_ / every) due_ = true;
    updateStage(phasePassed, isMeasuring);
  }
  if (kind == Phase::Kind::recovery) {
    const bool isFirst = phase == 0 || protocol_.phases[phase - 1].kind != Phase::Kind::recovery;
    const Duration before = isNew && isFirst ? notYet : recovered_;
    recovered_ += passed;
    updateRecovery(before);
  }
  phaseBefore_ = phasePassed;
}

void PressureSchedule::take() {
  due_ = false;
  isTaken_ = true;
}

void PressureSchedule::beginPhase(std::size_t phase) {
  phase_ = phase;
  phaseBefore_ = notYet;
  isTaken_ = false;
}

void PressureSchedule::updateStage(Duration phasePassed, bool isMeasuring) {
  if (!protocol_.pressures.nameExerciseTimes()) {
    if (!isTaken_ && !isMeasuring && endsSoon(phasePassed)) due_ = true;
    return;
  }
  for (const Duration point : protocol_.pressures.inStage) {
    if (isCrossed(point, phaseBefore_, phasePassed)) due_ = true;
  }
}

void PressureSchedule::updateRecovery(Duration before) {
  for (const Duration point : protocol_.pressures.inRecovery) {
    if (isCrossed(point, before, recovered_)) due_ = true;
  }
  const Duration every = protocol_.pressures.everyInRecovery;
  if (every > Duration::zero() && before >= Duration::zero() && before / every != recovered_ / every)
    due_ = true;
}

bool PressureSchedule::endsSoon(Duration phasePassed) const {
  const Phase& phase = protocol_.phases[*phase_];
  const Duration phaseLeft = phase.duration - phasePassed;
  if (phase.duration >= slowestCuff) return phaseLeft <= usualTime && phaseLeft >= slowestCuff;
  // No cuff is done within so short a stage; it should at least be done within the exercise.
  const Duration left = std::accumulate(
      protocol_.phases.begin() + static_cast<std::ptrdiff_t>(*phase_) + 1, protocol_.phases.end(), phaseLeft,
      [](Duration sum, const Phase& later) { return sum + later.duration; });
  return left >= quickestCuff;
}

}  // namespace tarsil
