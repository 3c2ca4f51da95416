#include "tarsil/runtime/RunLoop.hpp"

#include <poll.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tests/runtime/descriptors.hpp"

namespace tarsil {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

bool isReadable(int descriptor) {
  pollfd state{descriptor, POLLIN, 0};
  return poll(&state, 1, 0) == 1;
}

void waitUntilReadable(int descriptor) {
  pollfd state{descriptor, POLLIN, 0};
  poll(&state, 1, -1);
}

class RunLoopTest : public testing::Test {
 protected:
  void queue(std::string name) {
    DispatchQueue::main().async([this, name] { calls.push_back(name); });
  }

  RunLoop& loop = RunLoop::main();
  std::vector<std::string> calls;
};

TEST_F(RunLoopTest, TheMainThreadsLoopIsTheMainOne) {
  EXPECT_EQ(&RunLoop::current(), &RunLoop::main());
  EXPECT_TRUE(RunLoop::isMainThread());
}

TEST_F(RunLoopTest, EachThreadHasALoopOfItsOwn) {
  std::thread([this] {
    EXPECT_NE(&RunLoop::current(), &loop);
    EXPECT_EQ(&RunLoop::current(), &RunLoop::current());
    EXPECT_EQ(&RunLoop::main(), &loop);
    EXPECT_FALSE(RunLoop::isMainThread());
  }).join();
}

TEST_F(RunLoopTest, ProcessesTheMainQueueInOrder) {
  queue("a");
  queue("b");
  EXPECT_THAT(calls, IsEmpty());
  loop.processDue();
  EXPECT_THAT(calls, ElementsAre("a", "b"));
}

TEST_F(RunLoopTest, DescriptorIsReadableExactlyWhileACallIsQueued) {
  EXPECT_FALSE(isReadable(loop.descriptor()));
  queue("a");
  EXPECT_TRUE(isReadable(loop.descriptor()));
  loop.processDue();
  EXPECT_FALSE(isReadable(loop.descriptor()));
}

TEST_F(RunLoopTest, DescriptorIsReadableExactlyWhileATimerIsDue) {
  const auto timer = Timer::scheduled(milliseconds(1), false, [this](Timer&) { calls.push_back("timer"); });
  waitUntilReadable(loop.descriptor());
  EXPECT_THAT(calls, IsEmpty());
  loop.processDue();
  EXPECT_THAT(calls, ElementsAre("timer"));
  EXPECT_FALSE(isReadable(loop.descriptor()));
}

TEST_F(RunLoopTest, DescriptorForgetsATimerThatIsInvalidated) {
  const auto timer = Timer::scheduled(milliseconds(1), false, [this](Timer&) { calls.push_back("timer"); });
  waitUntilReadable(loop.descriptor());
  timer->invalidate();
  EXPECT_FALSE(isReadable(loop.descriptor()));
}

TEST_F(RunLoopTest, WorkQueuedByWorkWaitsForTheNextRound) {
  DispatchQueue::main().async([this] {
    calls.push_back("outer");
    queue("inner");
  });
  loop.processDue();
  EXPECT_THAT(calls, ElementsAre("outer"));
  EXPECT_TRUE(isReadable(loop.descriptor()));
  loop.processDue();
  EXPECT_THAT(calls, ElementsAre("outer", "inner"));
}

TEST_F(RunLoopTest, RunEndsAfterTheWorkThatStopsIt) {
  queue("a");
  DispatchQueue::main().async([this] { loop.stop(); });
  queue("b");
  loop.run();
  EXPECT_THAT(calls, ElementsAre("a"));
  loop.processDue();
  EXPECT_THAT(calls, ElementsAre("a", "b"));
}

TEST_F(RunLoopTest, StopMayComeFromAnotherThread) {
  std::thread other;
  DispatchQueue::main().async([&] { other = std::thread([this] { loop.stop(); }); });
  loop.run();
  other.join();
}

TEST_F(RunLoopTest, StopWithoutARunDoesNotStopTheNextOne) {
  loop.stop();
  queue("a");
  EXPECT_TRUE(loop.runUntil([this] { return !calls.empty(); }, hours(1)));
}

TEST_F(RunLoopTest, StopEndsTheInnermostRun) {
  DispatchQueue::main().async([this] {
    DispatchQueue::main().async([this] { loop.stop(); });
    loop.run();
    calls.push_back("inner ended");
    loop.stop();
  });
  loop.run();
  EXPECT_THAT(calls, ElementsAre("inner ended"));
}

TEST_F(RunLoopTest, AStopBeforeANestedRunIsForTheOuterOne) {
  DispatchQueue::main().async([this] {
    loop.stop();
    queue("a");
    EXPECT_TRUE(loop.runUntil([this] { return !calls.empty(); }, hours(1)));
  });
  EXPECT_TRUE(loop.runFor(hours(1)));
}

TEST_F(RunLoopTest, RunForSaysWhetherItWasStopped) {
  EXPECT_FALSE(loop.runFor(milliseconds(1)));
  DispatchQueue::main().async([this] { loop.stop(); });
  EXPECT_TRUE(loop.runFor(hours(1)));
}

TEST_F(RunLoopTest, RunForNoTimeProcessesWhatIsDue) {
  queue("a");
  EXPECT_FALSE(loop.runFor(Duration::zero()));
  EXPECT_THAT(calls, ElementsAre("a"));
}

TEST_F(RunLoopTest, RunUntilAsksAfterEachCall) {
  queue("a");
  queue("b");
  EXPECT_TRUE(loop.runUntil([this] { return !calls.empty(); }, hours(1)));
  EXPECT_THAT(calls, ElementsAre("a"));
  loop.processDue();
}

TEST_F(RunLoopTest, RunUntilReturnsAtOnceWhenTheConditionHolds) {
  queue("a");
  EXPECT_TRUE(loop.runUntil([] { return true; }, hours(1)));
  EXPECT_THAT(calls, IsEmpty());
  loop.processDue();
}

TEST_F(RunLoopTest, RunUntilGivesUpAtTheTimeout) {
  EXPECT_FALSE(loop.runUntil([] { return false; }, milliseconds(1)));
}

TEST_F(RunLoopTest, RunUntilFailsWhenItIsStopped) {
  DispatchQueue::main().async([this] { loop.stop(); });
  EXPECT_FALSE(loop.runUntil([] { return false; }, hours(1)));
}

TEST_F(RunLoopTest, AnExceptionLeavesTheRestForTheNextCall) {
  DispatchQueue::main().async([] { throw std::runtime_error("thrown by work"); });
  queue("a");
  EXPECT_THROW(loop.processDue(), std::runtime_error);
  EXPECT_TRUE(isReadable(loop.descriptor()));
  loop.processDue();
  EXPECT_THAT(calls, ElementsAre("a"));
}

TEST_F(RunLoopTest, ANestedRunGoesOnWithTheSameQueue) {
  DispatchQueue::main().async([this] {
    EXPECT_TRUE(loop.runUntil([this] { return calls.size() == 2; }, hours(1)));
    calls.push_back("outer");
  });
  queue("a");
  queue("b");
  loop.processDue();
  EXPECT_THAT(calls, ElementsAre("a", "b", "outer"));
}

TEST_F(RunLoopTest, ARestlessQueueDoesNotKeepTimersFromFiring) {
  std::function<void()> again = [&] { DispatchQueue::main().async(again); };
  again();
  const auto timer = Timer::scheduled(milliseconds(1), false, [this](Timer&) { loop.stop(); });
  loop.run();
  again = [] {};
  loop.processDue();
  loop.processDue();
}

TEST_F(RunLoopTest, ARestlessQueueDoesNotOutliveATimeout) {
  std::function<void()> again = [&] { DispatchQueue::main().async(again); };
  again();
  EXPECT_FALSE(loop.runFor(milliseconds(1)));
  again = [] {};
  loop.processDue();
  loop.processDue();
}

TEST_F(RunLoopTest, PerformsWorkOfAnotherThreadOnItsOwn) {
  std::thread([this] {
    loop.perform([this] { calls.push_back(RunLoop::isMainThread() ? "on the main thread" : "elsewhere"); });
    loop.perform([this] { loop.stop(); });
  }).join();
  EXPECT_THAT(calls, IsEmpty());
  loop.run();
  EXPECT_THAT(calls, ElementsAre("on the main thread"));
}

TEST_F(RunLoopTest, WhatAnEndedThreadIsGivenIsDroppedWithoutACall) {
  std::function<void(Work)> perform;
  std::thread([&] { perform = RunLoop::current().performer(); }).join();
  const auto held = std::make_shared<int>(0);
  perform([this, held] { queue("called"); });
  EXPECT_EQ(held.use_count(), 1);
  loop.processDue();
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(RunLoopTest, WatchesADescriptorUntilTheObservationIsDropped) {
  const Pair pipe = makePipe();
  auto watch = loop.watch(pipe.reading.get(), [&] { calls.push_back(receive(pipe.reading.get(), 2)); });
  loop.processDue();
  EXPECT_THAT(calls, IsEmpty());
  send(pipe.writing, "abc");
  waitUntilReadable(loop.descriptor());
  loop.processDue();
  loop.processDue();
  EXPECT_THAT(calls, ElementsAre("ab", "c"));
  watch.reset();
  send(pipe.writing, "d");
  EXPECT_FALSE(isReadable(loop.descriptor()));
}

TEST_F(RunLoopTest, WorkMayEndItsOwnWatch) {
  const Pair pipe = makePipe();
  Observation watch;
  watch = loop.watch(pipe.reading.get(), [&] {
    watch.reset();
    calls.push_back("watched");
  });
  send(pipe.writing, "a");
  waitUntilReadable(loop.descriptor());
  loop.processDue();
  EXPECT_THAT(calls, ElementsAre("watched"));
  EXPECT_FALSE(isReadable(loop.descriptor()));
}

TEST_F(RunLoopTest, AWatchGoesOnAfterAnException) {
  const Pair pipe = makePipe();
  const auto watch = loop.watch(pipe.reading.get(), [&] {
    calls.push_back(receive(pipe.reading.get(), 1));
    throw std::runtime_error("of the work");
  });
  send(pipe.writing, "ab");
  waitUntilReadable(loop.descriptor());
  EXPECT_THROW(loop.processDue(), std::runtime_error);
  waitUntilReadable(loop.descriptor());
  EXPECT_THROW(loop.processDue(), std::runtime_error);
  EXPECT_THAT(calls, ElementsAre("a", "b"));
}

TEST_F(RunLoopTest, OnVirtualTimeTheMachinesNewsComeWithinATenthOfASecond) {
  VirtualTime time;
  const Pair pipe = makePipe();
  const auto start = Clock::now();
  const auto watch = loop.watch(pipe.reading.get(), [&] {
    calls.push_back(receive(pipe.reading.get()));
    EXPECT_LE(Clock::now() - start, milliseconds(350));
  });
  send(pipe.writing, "at once");
  time.settle();
  EXPECT_THAT(std::exchange(calls, {}), ElementsAre("at once"));
  const auto tick = Timer::scheduled(milliseconds(10), true, [&](Timer&) {
    if (Clock::now() - start == milliseconds(250)) send(pipe.writing, "meanwhile");
  });
  time.advance(milliseconds(350));
  EXPECT_THAT(calls, ElementsAre("meanwhile"));
}

}  // namespace
}  // namespace tarsil
