#include "tarsil/runtime/VirtualTime.hpp"

#include <array>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/runtime/DispatchSource.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tarsil/support/process.hpp"
#include "tests/runtime/descriptors.hpp"

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
  auto pair = makePipe();
  const auto source = DispatchSource::read(pair.reading.get(), DispatchQueue::global());
  source->setEventHandler([&] { calls.push_back(receive(pair.reading.get(), 1)); });
  source->setCancelHandler([&] {
    pair = {};
    calls.push_back("cancelled");
  });
  source->resume();
  send(pair.writing, "ab");
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

TEST_F(VirtualTimeTest, AnExceptionOfWorkThatWentBeforePassesOutOfSync) {
  const auto serial = DispatchQueue::serial("a");
  serial.async([] { throw std::runtime_error("thrown by work"); });
  EXPECT_THROW(serial.sync(record("never")), std::runtime_error);
  EXPECT_TRUE(RunLoop::isMainThread());
  serial.async(record("a"));
  serial.sync(record("b"));
  time.settle();
  EXPECT_THAT(calls, ElementsAre("a", "b"));
}

TEST_F(VirtualTimeTest, WorkThatTheMainThreadWaitsForMayWaitForTheMainQueue) {
  const auto serial = DispatchQueue::serial("a");
  DispatchQueue::main().async([&] {
    DispatchQueue::main().async(record("later"));
    serial.sync([&] { DispatchQueue::main().sync(record("main")); });
    calls.push_back("first");
  });
  time.settle();
  EXPECT_THAT(calls, ElementsAre("main", "first", "later"));
}

TEST_F(VirtualTimeTest, SyncOnASerialQueueRunsWhatItHoldsAlready) {
  const auto serial = DispatchQueue::serial("a");
  serial.async(record("a"));
  serial.async(record("b"));
  EXPECT_EQ(serial.sync([this] { return calls.size(); }), 2U);
  DispatchQueue::global().async(record("global"));
  serial.async(record("c"));
  time.settle();
  EXPECT_THAT(calls, ElementsAre("a", "b", "global", "c"));
}

TEST_F(VirtualTimeTest, ProcessDueSettles) {
  DispatchQueue::global().async([this] { DispatchQueue::main().async(record("main")); });
  RunLoop::main().processDue();
  EXPECT_THAT(calls, ElementsAre("main"));
}

TEST_F(VirtualTimeTest, StopLeavesTheRestDue) {
  DispatchQueue::main().async([] { RunLoop::main().stop(); });
  DispatchQueue::main().async(record("a"));
  EXPECT_TRUE(RunLoop::main().runFor(seconds(1)));
  EXPECT_EQ(elapsed(), Duration::zero());
  time.settle();
  EXPECT_THAT(calls, ElementsAre("a"));
}

TEST_F(VirtualTimeTest, AdvancingByNothingOrLessOnlySettles) {
  DispatchQueue::main().async(record("a"));
  time.advance(Duration::zero());
  time.advance(seconds(-1));
  EXPECT_THAT(calls, ElementsAre("a"));
  EXPECT_EQ(elapsed(), Duration::zero());
}

TEST_F(VirtualTimeTest, AnActionMayMoveTheClock) {
  const auto outer = Timer::scheduled(seconds(1), false, [this](Timer&) {
    calls.push_back("outer");
    time.advance(seconds(5));
    calls.push_back("outer ends");
  });
  const auto inner = Timer::scheduled(seconds(2), false, [this](Timer&) { calls.push_back("inner"); });
  time.advance(seconds(3));
  EXPECT_THAT(calls, ElementsAre("outer", "inner", "outer ends"));
  EXPECT_EQ(elapsed(), seconds(6));
}

TEST_F(VirtualTimeTest, RunWaitsForADescriptorWhenThereIsNoTimer) {
  const auto pair = makePipe();
  const auto source = DispatchSource::read(pair.reading.get(), DispatchQueue::global());
  source->setEventHandler([&] {
    calls.push_back(receive(pair.reading.get()));
    DispatchQueue::main().async([] { RunLoop::main().stop(); });
  });
  source->resume();
  std::thread other([&] { send(pair.writing, "from outside"); });
  RunLoop::main().run();
  other.join();
  EXPECT_THAT(calls, ElementsAre("from outside"));
}

TEST_F(VirtualTimeTest, DescriptorsComeInTheOrderInWhichTheyWereWatched) {
  std::vector<Pair> pipes;
  std::vector<std::shared_ptr<DispatchSource>> sources;
  for (int i = 0; i < 5; ++i) {
    pipes.push_back(makePipe());
    const int descriptor = pipes.back().reading.get();
    sources.push_back(DispatchSource::read(descriptor, DispatchQueue::global()));
    sources.back()->setEventHandler([this, descriptor] { calls.push_back(receive(descriptor)); });
    sources.back()->resume();
  }
  for (const int i : {3, 1, 4, 0, 2}) send(pipes[static_cast<std::size_t>(i)].writing, std::to_string(i));
  time.settle();
  EXPECT_THAT(calls, ElementsAre("0", "1", "2", "3", "4"));
}

TEST_F(VirtualTimeTest, FarAwayTimersNeedNoClockBeyondTheEndOfTime) {
  const auto timer = Timer::scheduled(Duration::max(), true, [this](Timer&) { calls.push_back("timer"); });
  time.advance(Duration::max());
  time.advance(Duration::max());
  EXPECT_EQ(Clock::now(), Clock::Instant::max());
}

void expectADayLikeAnyOther() {
  const VirtualTime time;
  const auto wall = std::chrono::system_clock::to_time_t(Clock::wallNow());
  std::tm local{};
  localtime_r(&wall, &local);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
  EXPECT_STREQ(text.data(), "2024-03-01 14:05:09");
}

TEST(VirtualTimesTest, TheTimeOfDayStartsOnADayLikeAnyOther) {
  expectADayLikeAnyOther();
  // Where it is summer then.
  const char* const zone = std::getenv("TZ");
  const std::string before = zone != nullptr ? zone : "";
  setenv("TZ", "AEST-10AEDT,M10.1.0,M4.1.0/3", 1);
  tzset();
  expectADayLikeAnyOther();
  if (zone != nullptr) {
    setenv("TZ", before.c_str(), 1);
  } else {
    unsetenv("TZ");
  }
  tzset();
}

TEST(VirtualTimesTest, TheTimeOfDayStartsAsAsked) {
  const auto wall = std::chrono::system_clock::time_point(std::chrono::hours(500'000));
  const VirtualTime time(wall);
  EXPECT_EQ(Clock::wallNow(), wall);
}

TEST(VirtualTimesTest, TheMachinesTimeComesBackAtTheEnd) {
  const auto before = Clock::now();
  {
    VirtualTime time;
    time.advance(std::chrono::hours(24 * 365 * 100));
  }
  EXPECT_GE(Clock::now(), before);
  EXPECT_LT(Clock::now(), before + std::chrono::hours(24));
}

TEST(VirtualTimesTest, WhatIsLeftAtTheEndIsDropped) {
  const auto held = std::make_shared<int>();
  const auto serial = DispatchQueue::serial("a");
  std::vector<std::string> calls;
  std::shared_ptr<Timer> timer;
  std::shared_ptr<DispatchSource> source;
  {
    VirtualTime time;
    timer = Timer::scheduled(seconds(1), true, [held](Timer&) {});
    source = DispatchSource::timer(seconds(1), seconds(1), seconds(0), serial);
    source->setEventHandler([held] {});
    source->resume();
    serial.async([held, serial] {});
    DispatchQueue::global().async([held] {});
    DispatchQueue::main().async([held] {});
  }
  EXPECT_FALSE(timer->isValid());
  timer->invalidate();
  // The source still holds its handler: it may be cancelled yet.
  EXPECT_EQ(held.use_count(), 2);
  source->cancel();
  serial.async([&] { calls.push_back("a"); });
  serial.sync([&] { calls.push_back("b"); });
  EXPECT_THAT(calls, ElementsAre("a", "b"));
  EXPECT_EQ(held.use_count(), 1);
}

/// Does something when it is let go of.
std::shared_ptr<void> whenDropped(Work work) {
  return {nullptr, [work = std::move(work)](void*) { work(); }};
}

TEST(VirtualTimesTest, WhatIsDroppedAtTheEndSetsNothingOff) {
  const auto held = std::make_shared<int>();
  int calls = 0;
  const auto call = [held, &calls] { ++calls; };
  const auto serial = DispatchQueue::serial("a");
  {
    VirtualTime time;
    auto source = DispatchSource::timer(seconds(1), seconds(1), seconds(0), serial);
    source->setEventHandler(call);
    source->setCancelHandler(call);
    source->resume();
    DispatchQueue::main().async([source = std::move(source)] {});
    const auto queues = whenDropped([=] {
      DispatchQueue::main().async(call);
      DispatchQueue::global().async([again = whenDropped([=] { serial.async(call); })] {});
    });
    serial.async([queues] {});
    const auto timer = Timer::scheduled(seconds(1), false, [queues](Timer&) {});
    const auto timers =
        whenDropped([=] { Timer::scheduled(Duration::zero(), true, [call](Timer&) { call(); }); });
    DispatchQueue::global().async([timers] {});
  }
  // Gone already, so that nothing can come later.
  EXPECT_EQ(held.use_count(), 2) << "held by the test and by `call`";
  EXPECT_EQ(calls, 0);
}

TEST(VirtualTimesTest, ATimerOfTheMachinesTimeRestsMeanwhile) {
  int fired = 0;
  const auto timer = Timer::scheduled(milliseconds(1), false, [&](Timer&) { ++fired; });
  {
    VirtualTime time;
    time.advance(seconds(1));
    EXPECT_EQ(fired, 0);
  }
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return fired == 1; }, seconds(60)));
}

TEST(VirtualTimeDeathTest, ThereIsOnlyOne) {
  const VirtualTime time;
  EXPECT_DEATH(VirtualTime(), "fatal error: there is a VirtualTime already");
}

TEST(VirtualTimeDeathTest, ItIsMadeOnTheMainThread) {
  EXPECT_DEATH(std::thread([] { VirtualTime(); }).join(),
               "fatal error: a VirtualTime must be made on the main thread");
}

TEST(VirtualTimeDeathTest, SyncFromItsOwnWorkByWayOfTheMainQueue) {
  VirtualTime time;
  const auto serial = DispatchQueue::serial("requests");
  serial.async([&] { DispatchQueue::main().sync([&] { serial.sync([] {}); }); });
  EXPECT_DEATH(time.settle(), "fatal error: sync on the serial queue \"requests\" from its own work");
}

TEST(VirtualTimeDeathTest, WorkOfAChildProcessIsSettledToo) {
  VirtualTime time;
  DispatchQueue::main().async([] { fatalError("reached"); });
  EXPECT_DEATH(time.settle(), "fatal error: reached");
}

TEST(VirtualTimeDeathTest, ARunThatNothingCanEndStopsTheProcess) {
  const VirtualTime time;
  EXPECT_DEATH(
      RunLoop::main().run(),
      "fatal error: RunLoop::run\\(\\) on a VirtualTime with no timer and no descriptor would never end");
}

}  // namespace
}  // namespace tarsil
