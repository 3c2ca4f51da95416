#include "tarsil/runtime/Timer.hpp"

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/VirtualTime.hpp"

namespace tarsil {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

class TimerTest : public testing::Test {
 protected:
  std::function<void(Timer&)> record(std::string name) {
    return [this, name](Timer&) { calls.push_back(name + " " + std::to_string(elapsed())); };
  }
  long elapsed() const { return std::chrono::duration_cast<milliseconds>(Clock::now() - start).count(); }

  VirtualTime time;
  const Clock::Instant start = Clock::now();
  std::vector<std::string> calls;
};

TEST_F(TimerTest, FiresOnceAfterItsInterval) {
  const auto timer = Timer::scheduled(milliseconds(100), false, record("a"));
  time.advance(milliseconds(99));
  EXPECT_THAT(calls, IsEmpty());
  EXPECT_TRUE(timer->isValid());
  time.advance(milliseconds(1000));
  EXPECT_THAT(calls, ElementsAre("a 100"));
  EXPECT_FALSE(timer->isValid());
}

TEST_F(TimerTest, RepeatsUntilItIsInvalidated) {
  const auto timer = Timer::scheduled(milliseconds(100), true, record("a"));
  time.advance(milliseconds(350));
  timer->invalidate();
  timer->invalidate();
  time.advance(milliseconds(350));
  EXPECT_THAT(calls, ElementsAre("a 100", "a 200", "a 300"));
  EXPECT_FALSE(timer->isValid());
}

TEST_F(TimerTest, TheLoopKeepsAScheduledTimerAlive) {
  const auto held = std::make_shared<int>();
  const std::weak_ptr<Timer> timer =
      Timer::scheduled(milliseconds(100), false, [held, act = record("a")](Timer& self) { act(self); });
  EXPECT_EQ(held.use_count(), 2);
  time.advance(milliseconds(100));
  EXPECT_THAT(calls, ElementsAre("a 100"));
  EXPECT_TRUE(timer.expired());
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(TimerTest, InvalidatingLetsGoOfTheAction) {
  const auto held = std::make_shared<int>();
  const auto timer = Timer::scheduled(milliseconds(100), true, [held](Timer&) {});
  timer->invalidate();
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(TimerTest, AnActionMayInvalidateItsOwnTimer) {
  auto held = std::make_shared<std::string>("still there");
  std::weak_ptr<std::string> seen = held;
  Timer::scheduled(milliseconds(100), true, [this, held = std::move(held)](Timer& self) {
    self.invalidate();
    calls.push_back(*held);
  });
  time.advance(seconds(1));
  EXPECT_THAT(calls, ElementsAre("still there"));
  EXPECT_TRUE(seen.expired());
}

TEST_F(TimerTest, TimersDueTogetherFireInTheOrderOfCreation) {
  const auto slow = Timer::scheduled(milliseconds(200), true, record("first"));
  const auto fast = Timer::scheduled(milliseconds(100), true, record("second"));
  time.advance(milliseconds(200));
  EXPECT_THAT(calls, ElementsAre("second 100", "first 200", "second 200"));
}

TEST_F(TimerTest, ATimerInvalidatedAtTheInstantOfItsBeatDoesNotFire) {
  std::shared_ptr<Timer> second;
  const auto first = Timer::scheduled(milliseconds(100), false, [&](Timer&) { second->invalidate(); });
  second = Timer::scheduled(milliseconds(100), true, record("second"));
  time.advance(seconds(1));
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(TimerTest, AnUnscheduledTimerIsValidAndNeverFires) {
  const auto timer = Timer::unscheduled();
  EXPECT_TRUE(timer->isValid());
  time.advance(std::chrono::hours(1));
  timer->invalidate();
  EXPECT_FALSE(timer->isValid());
}

TEST_F(TimerTest, ARepeatingTimerGoesOnAfterAnException) {
  const auto timer = Timer::scheduled(milliseconds(100), true, [this](Timer&) {
    calls.push_back(std::to_string(elapsed()));
    if (calls.size() == 1) throw std::runtime_error("thrown by the action");
  });
  EXPECT_THROW(time.advance(milliseconds(250)), std::runtime_error);
  EXPECT_EQ(elapsed(), 100);
  time.advance(milliseconds(150));
  EXPECT_THAT(calls, ElementsAre("100", "200"));
}

TEST_F(TimerTest, BeatsThatPassDuringTheActionAreLeftOut) {
  const auto timer = Timer::scheduled(milliseconds(100), true, [this](Timer&) {
    calls.push_back(std::to_string(elapsed()));
    if (calls.size() == 1) RunLoop::current().runFor(milliseconds(250));
  });
  time.advance(milliseconds(500));
  EXPECT_THAT(calls, ElementsAre("100", "400", "500"));
}

TEST_F(TimerTest, ANegativeOrEmptyIntervalIsDueAtOnce) {
  const auto timer = Timer::scheduled(milliseconds(-5), false, record("a"));
  const auto other = Timer::scheduled(Duration::zero(), false, record("b"));
  time.settle();
  EXPECT_THAT(calls, ElementsAre("a 0", "b 0"));
}

TEST_F(TimerTest, ARepeatingTimerBeatsNoFasterThanTenTimesAMillisecond) {
  int beats = 0;
  const auto timer = Timer::scheduled(Duration::zero(), true, [&](Timer&) { ++beats; });
  time.advance(milliseconds(1));
  EXPECT_EQ(beats, 10);
}

TEST_F(TimerTest, ATimerBeyondTheEndOfTimeRests) {
  const auto timer = Timer::scheduled(Duration::max(), true, record("a"));
  time.advance(std::chrono::hours(24 * 365));
  EXPECT_THAT(calls, IsEmpty());
}

TEST(TimerOnTheMachinesClockTest, FiresOnTheLoopOfItsThread) {
  int fired = 0;
  const auto timer = Timer::scheduled(milliseconds(1), true, [&](Timer& self) {
    EXPECT_TRUE(RunLoop::isMainThread());
    if (++fired == 3) self.invalidate();
  });
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return fired == 3; }, seconds(60)));
  EXPECT_FALSE(timer->isValid());
}

TEST(TimerOnTheMachinesClockTest, EndsWithTheThreadOfItsLoop) {
  std::shared_ptr<Timer> timer;
  const auto held = std::make_shared<int>();
  std::thread([&] {
    timer = Timer::scheduled(seconds(60), true, [held](Timer&) {});
    EXPECT_TRUE(timer->isValid());
  }).join();
  EXPECT_FALSE(timer->isValid());
  EXPECT_EQ(held.use_count(), 1);
}

}  // namespace
}  // namespace tarsil
