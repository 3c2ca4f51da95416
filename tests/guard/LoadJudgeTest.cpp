#include "tarsil/guard/detail/LoadJudge.hpp"

#include <gtest/gtest.h>

#include <chrono>

namespace tarsil::detail {
namespace {

using namespace std::chrono_literals;
using Verdict = LoadJudge::Verdict;

/// Seconds after the exercise began.
Clock::Instant at(double seconds) {
  return Clock::Instant{} + std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
}

class LoadJudgeTest : public testing::Test {
 protected:
  LoadJudgeTest() { judge_.begin(at(0)); }

  Verdict speed(float kmph, double seconds) const { return judge_.judge({.speed = kmph}, at(seconds)); }

  LoadJudge judge_;
};

TEST_F(LoadJudgeTest, LetsABeltTakeItsTimeToSpeedUp) {
  judge_.told({.speed = 5}, at(0));
  EXPECT_EQ(speed(0, 1), Verdict::agrees);
  EXPECT_EQ(speed(3, 10), Verdict::agrees);
  EXPECT_EQ(speed(5, 10), Verdict::agrees);
}

TEST_F(LoadJudgeTest, MissesABeltThatNeverMoves) {
  judge_.told({.speed = 5}, at(0));
  EXPECT_EQ(speed(0, 15), Verdict::agrees);
  EXPECT_EQ(speed(0, 16), Verdict::stands);
}

TEST_F(LoadJudgeTest, LetsABeltStandThatIsToldNoMoreThanItMayBeOff) {
  judge_.told({.speed = 0.4F}, at(0));
  EXPECT_EQ(speed(0, 30), Verdict::agrees);
  judge_.told({.speed = 0.5F}, at(30));
  EXPECT_EQ(speed(0, 60), Verdict::stands);
}

TEST_F(LoadJudgeTest, SeesAtOnceThatABeltStandsThatWasOnItsWay) {
  judge_.told({.speed = 5}, at(0));
  judge_.told({.speed = 6}, at(60));
  EXPECT_EQ(speed(0, 61), Verdict::stands);
}

TEST_F(LoadJudgeTest, SeesABeltThatIsTooSlow) {
  judge_.told({.speed = 5}, at(0));
  EXPECT_EQ(speed(4, 60), Verdict::differs);
  EXPECT_EQ(speed(4.7F, 60), Verdict::agrees);
}

TEST_F(LoadJudgeTest, SeesABeltThatIsFasterThanItWasEverTold) {
  judge_.told({.speed = 5}, at(0));
  EXPECT_EQ(speed(5.3F, 1), Verdict::agrees);
  EXPECT_EQ(speed(5.5F, 1), Verdict::exceeds);
}

TEST_F(LoadJudgeTest, LetsABeltTakeItsTimeToSlowDown) {
  judge_.told({.speed = 10}, at(0));
  judge_.told({.speed = 6}, at(60));
  EXPECT_EQ(speed(10, 62), Verdict::agrees);
  EXPECT_EQ(speed(10, 72.9), Verdict::agrees);
  EXPECT_EQ(speed(10, 73.2), Verdict::exceeds);
}

TEST_F(LoadJudgeTest, KnowsThatABeltStartsAtItsSlowestSpeed) {
  EXPECT_EQ(speed(1.6F, 5), Verdict::agrees);
  EXPECT_EQ(speed(2.1F, 5), Verdict::exceeds);
}

TEST_F(LoadJudgeTest, SeesAGradeThatStays) {
  judge_.told({.speed = 3, .grade = 10}, at(0));
  EXPECT_EQ(judge_.judge({.speed = 3, .grade = 5}, at(20)), Verdict::agrees);
  EXPECT_EQ(judge_.judge({.speed = 3, .grade = 5}, at(29)), Verdict::differs);
}

TEST_F(LoadJudgeTest, HoldsPowerToAFewWatts) {
  judge_.told({.power = 100}, at(0));
  EXPECT_EQ(judge_.judge({.power = 100}, at(30)), Verdict::agrees);
  EXPECT_EQ(judge_.judge({.power = 84}, at(30)), Verdict::differs);
  EXPECT_EQ(judge_.judge({.power = 116}, at(30)), Verdict::exceeds);
  EXPECT_EQ(judge_.judge({}, at(30)), Verdict::stands);
}

}  // namespace
}  // namespace tarsil::detail
