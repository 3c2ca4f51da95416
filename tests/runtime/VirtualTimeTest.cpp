#include "tarsil/runtime/VirtualTime.hpp"

#include <unistd.h>

#include <array>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/runtime/DispatchSource.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/Timer.hpp"

namespace tarsil {
namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;
using testing::ElementsAre;

class VirtualTimeTest : public testing::Test {
 protected:
  Work record(std::string name) {
    return [this, name] { calls.push_back(name); };
  }
  Duration elapsed() const { return Clock::now() - start; }

  VirtualTime time;
  const Clock::Instant start = Clock::now();
  std::vector<std::string> calls;
};

TEST_F(VirtualTimeTest, StandsStillUntilItIsMoved) {
  EXPECT_EQ(Clock::now(), Clock::now());
  time.advance(milliseconds(10));
  EXPECT_EQ(elapsed(), milliseconds(10));
}

TEST_F(VirtualTimeTest, TheTimeOfDayGoesAlong) {
  const auto wall = Clock::wallNow();
  time.advance(minutes(20));
  EXPECT_EQ(Clock::wallNow() - wall, minutes(20));
}

TEST_F(VirtualTimeTest, SettlesInTheOrderOfTheQueues) {
  const auto serial = DispatchQueue::serial("a");
  const auto timer = Timer::scheduled(Duration::zero(), false, [this](Timer&) { calls.push_back("timer"); });
  serial.async(record("serial 1"));
  DispatchQueue::global().async([this] {
    calls.push_back("global");
    DispatchQueue::main().async(record("main 2"));
  });
  serial.async(record("serial 2"));
  DispatchQueue::main().async(record("main 1"));
  time.settle();
  EXPECT_THAT(calls, ElementsAre("main 1", "serial 1", "global", "main 2", "serial 2", "timer"));
}

TEST_F(VirtualTimeTest, TellsWhoseWorkIsRunning) {
  const auto serial = DispatchQueue::serial("a");
  EXPECT_TRUE(RunLoop::isMainThread());
  DispatchQueue::global().async([&] {
    calls.push_back("global");
    EXPECT_FALSE(RunLoop::isMainThread());
    EXPECT_FALSE(DispatchQueue::main().isCurrent());
    EXPECT_TRUE(DispatchQueue::global().isCurrent());
    EXPECT_NE(&RunLoop::current(), &RunLoop::main());
    DispatchQueue::main().sync([&] {
      calls.push_back("main");
      EXPECT_TRUE(RunLoop::isMainThread());
      EXPECT_EQ(&RunLoop::current(), &RunLoop::main());
    });
    serial.sync([&] {
      calls.push_back("serial");
      EXPECT_FALSE(RunLoop::isMainThread());
      EXPECT_TRUE(serial.isCurrent());
    });
  });
  time.settle();
  EXPECT_TRUE(RunLoop::isMainThread());
  EXPECT_THAT(calls, ElementsAre("global", "main", "serial"));
}

TEST_F(VirtualTimeTest, SyncToTheMainQueueComesAfterWhatItHoldsAlready) {
  DispatchQueue::global().async([this] {
    DispatchQueue::main().async(record("main async"));
    DispatchQueue::main().sync(record("main sync"));
    calls.push_back("global");
  });
  time.settle();
  EXPECT_THAT(calls, ElementsAre("main async", "main sync", "global"));
}

TEST_F(VirtualTimeTest, FiresSourcesAndTimersAtTheirExactTimes) {
  const auto record = [this](const char* name) {
    calls.push_back(name + std::to_string(std::chrono::duration_cast<milliseconds>(elapsed()).count()));
  };
  const auto source =
      DispatchSource::timer(Duration::zero(), milliseconds(10), milliseconds(5), DispatchQueue::global());
  source->setEventHandler([&] { record("source "); });
  source->resume();
  const auto timer = Timer::scheduled(milliseconds(10), true, [&](Timer&) { record("timer "); });
  time.advance(milliseconds(20));
  EXPECT_THAT(calls, ElementsAre("source 0", "source 10", "timer 10", "source 20", "timer 20"));
}

TEST_F(VirtualTimeTest, ReadsDescriptors) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  const auto source = DispatchSource::read(ends[0], DispatchQueue::global());
  source->setEventHandler([&] {
    char byte = 0;
    ASSERT_EQ(read(ends[0], &byte, 1), 1);
    calls.push_back(std::string(1, byte));
  });
  source->setCancelHandler([&] {
    close(ends[0]);
    close(ends[1]);
    calls.push_back("cancelled");
  });
  source->resume();
  ASSERT_EQ(write(ends[1], "ab", 2), 2);
  time.settle();
  source->cancel();
  time.settle();
  EXPECT_THAT(calls, ElementsAre("a", "b", "cancelled"));
}

TEST_F(VirtualTimeTest, RunJumpsFromTimerToTimer) {
  int beats = 0;
  const auto timer = Timer::scheduled(minutes(1), true, [&](Timer&) {
    if (++beats == 20) RunLoop::main().stop();
  });
  RunLoop::main().run();
  EXPECT_EQ(elapsed(), minutes(20));
}

TEST_F(VirtualTimeTest, RunForMovesTheClockToItsEnd) {
  const auto timer = Timer::scheduled(milliseconds(900), true, [this](Timer&) { calls.push_back("timer"); });
  EXPECT_FALSE(RunLoop::main().runFor(seconds(1)));
  EXPECT_EQ(elapsed(), seconds(1));
  EXPECT_THAT(calls, ElementsAre("timer"));
}

TEST_F(VirtualTimeTest, RunUntilStopsTheClockWhenTheConditionHolds) {
  const auto timer = Timer::scheduled(milliseconds(300), true, [this](Timer&) { calls.push_back("timer"); });
  EXPECT_TRUE(RunLoop::main().runUntil([this] { return calls.size() == 2; }, seconds(10)));
  EXPECT_EQ(elapsed(), milliseconds(600));
  EXPECT_FALSE(RunLoop::main().runUntil([] { return false; }, seconds(1)));
  EXPECT_EQ(elapsed(), milliseconds(1600));
}

TEST_F(VirtualTimeTest, AnExceptionPassesAndTheRestComesLater) {
  const auto serial = DispatchQueue::serial("a");
  serial.async([] { throw std::runtime_error("thrown by work"); });
  serial.async(record("a"));
  EXPECT_THROW(time.settle(), std::runtime_error);
  EXPECT_TRUE(RunLoop::isMainThread());
  EXPECT_FALSE(serial.isCurrent());
  time.settle();
  EXPECT_THAT(calls, ElementsAre("a"));
}

TEST(VirtualTimeDeathTest, ThereIsOnlyOne) {
  const VirtualTime time;
  EXPECT_DEATH(VirtualTime(), "fatal error: there is a VirtualTime already");
}

TEST(VirtualTimeDeathTest, ARunThatNothingCanEndStopsTheProcess) {
  const VirtualTime time;
  EXPECT_DEATH(
      RunLoop::main().run(),
      "fatal error: RunLoop::run\\(\\) on a VirtualTime with no timer and no descriptor would never end");
}

}  // namespace
}  // namespace tarsil
