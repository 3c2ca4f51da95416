#pragma once

#include <cstddef>
#include <optional>

#include "tarsil/exercise/Protocol.hpp"
#include "tarsil/runtime/Clock.hpp"

namespace tarsil {

/// Says when a protocol wants a blood pressure, while somebody walks through it. What fell due stays so until
/// it was taken, in the next phase as well, so that none is lost. Not thread-safe.
class PressureSchedule {
 public:
  explicit PressureSchedule(const Protocol& protocol) : protocol_(protocol) {}

  /// Time has gone on: `passed` since the call before, of which the phase's own clock shows `phasePassed`
  /// (it stands while a phase is held). `isMeasuring`: a cuff is at work.
  void update(std::size_t phase, Duration phasePassed, Duration passed, bool isMeasuring);

  bool isDue() const { return due_; }
  /// A measurement has begun, whoever wanted it.
  void take();

 private:
  void beginPhase(std::size_t phase);
  void updateStage(Duration phasePassed, bool isMeasuring);
  void updateRecovery(Duration before);
  bool endsSoon(Duration phasePassed) const;
  static bool isCrossed(Duration point, Duration before, Duration now) {
    return before < point && point <= now;
  }

  const Protocol protocol_;
  std::optional<std::size_t> phase_;
  /// Shown by the phase's clock at the update before; less than zero: not updated yet.
  Duration phaseBefore_{};
  /// Since the first stage, and since the recovery, began.
  Duration exercised_{};
  Duration recovered_{};
  bool due_ = false;
  /// A measurement has begun in this phase.
  bool isTaken_ = false;
};

}  // namespace tarsil
