#include "tarsil/exercise/PressureSchedule.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

/// Walks through a protocol second by second, as a test does.
class Walk {
 public:
  explicit Walk(const std::string& statements)
      : protocol_(readProtocol("name A\ndevice bicycle\n" + statements, "test")), schedule_(protocol_) {}

  /// Each measurement keeps the cuff busy for so long.
  void setCuffTime(Duration time) { cuffTime_ = time; }

  /// The seconds since the beginning at which a measurement begins.
  std::vector<int> pressures() {
    for (std::size_t phase = 0; phase < protocol_.phases.size(); ++phase) {
      for (Duration passed = 1s; passed < protocol_.phases[phase].duration; passed += 1s) step(phase, passed);
      now_ += 1s;  // the beat at which the next phase begins
    }
    return begun_;
  }

  /// The phase's clock stands for so long.
  void hold(std::size_t phase, Duration passed, Duration time) {
    for (Duration held{}; held < time; held += 1s) step(phase, passed);
  }

  const std::vector<int>& begun() const { return begun_; }

 private:
  void step(std::size_t phase, Duration passed) {
    now_ += 1s;
    const bool isMeasuring = now_ < busyUntil_;
    schedule_.update(phase, passed, 1s, isMeasuring);
    if (isMeasuring || !schedule_.isDue()) return;
    schedule_.take();
    busyUntil_ = now_ + cuffTime_;
    begun_.push_back(static_cast<int>(std::chrono::duration_cast<std::chrono::seconds>(now_).count()));
  }

  const Protocol protocol_;
  PressureSchedule schedule_;
  Duration cuffTime_ = 30s;
  Duration now_{};
  Duration busyUntil_{};
  std::vector<int> begun_;
};

TEST(PressureScheduleTest, TakesOneTowardsEachStagesEndWhereNoTimesAreNamed) {
  EXPECT_THAT(Walk("warm-up 2:00 25\nstage 3:00 50\nstage 3:00 75\nrecovery 2:00 25").pressures(),
              ElementsAre(120 + 120, 300 + 120));
}

TEST(PressureScheduleTest, TakesWhatFitsIntoShortStages) {
  EXPECT_THAT(Walk("warm-up 0:05 25\nstage 0:16 50\nstage 0:16 75\nrecovery 0:06 25").pressures(),
              ElementsAre(6));
  EXPECT_THAT(Walk("stage 0:20 50").pressures(), IsEmpty());
}

TEST(PressureScheduleTest, TakesThemAtTheirTimesInEachStageThatLastsSoLong) {
  EXPECT_THAT(
      Walk("pressure at 0:30\npressure at 2:00\nwarm-up 1:00 25\nstage 3:00 50\nstage 1:00 75").pressures(),
      ElementsAre(60 + 30, 60 + 120, 240 + 30));
}

TEST(PressureScheduleTest, TakesOneAgainAndAgainFromTheFirstStageOn) {
  EXPECT_THAT(Walk("pressure every 2:00\nwarm-up 1:00 25\nramp 7:00 25 200\nrecovery 3:00 25").pressures(),
              ElementsAre(60 + 120, 60 + 240, 60 + 360));
}

TEST(PressureScheduleTest, TakesThoseOfTheRecoveryAcrossItsPhases) {
  EXPECT_THAT(Walk("pressure every 9:00\nstage 0:10 50\nrecovery 2:00 25\nrecovery 2:00 10\n"
                   "pressure recovery at 0:00\npressure recovery at 3:00")
                  .pressures(),
              ElementsAre(11, 10 + 181));
  EXPECT_THAT(
      Walk("pressure every 9:00\nstage 0:10 50\nrecovery 5:00 25\npressure recovery every 2:00").pressures(),
      ElementsAre(130, 250));
}

TEST(PressureScheduleTest, OnesThatFallDueWhileTheCuffIsBusyAreTakenAfterwardsInTheNextPhaseToo) {
  Walk walk("pressure at 0:30\npressure at 0:50\nstage 1:00 50\nrecovery 1:00 25");
  walk.setCuffTime(45s);
  EXPECT_THAT(walk.pressures(), ElementsAre(30, 75));
}

TEST(PressureScheduleTest, GoesOnWithTheIntervalWhileAPhaseIsHeld) {
  Walk walk("pressure every 2:00\nstage 1:00 50");
  walk.hold(0, 30s, 5min);
  EXPECT_THAT(walk.begun(), ElementsAre(120, 240));
}

TEST(PressureScheduleTest, DoesNotRepeatAPointWhileAPhaseIsHeldThere) {
  Walk walk("pressure at 0:30\nstage 1:00 50");
  walk.hold(0, 30s, 5min);
  EXPECT_THAT(walk.begun(), ElementsAre(1));
}

}  // namespace
}  // namespace tarsil
