#include "tarsil/runtime/DispatchQueue.hpp"

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/detail/WorkerPool.hpp"
#include "tests/runtime/Gate.hpp"

namespace tarsil {
namespace {

using std::chrono::hours;
using testing::ElementsAre;

/// Runs the main loop until everything was called that the test expects.
void runUntil(const std::function<bool()>& condition) {
  ASSERT_TRUE(RunLoop::main().runUntil(condition, hours(1)));
}

TEST(DispatchQueueTest, CopiesNameTheSameQueue) {
  const auto queue = DispatchQueue::serial("a");
  const auto copy = queue;
  EXPECT_EQ(queue, copy);
  EXPECT_NE(queue, DispatchQueue::serial("a"));
  EXPECT_EQ(DispatchQueue::main(), DispatchQueue::main());
}

TEST(DispatchQueueTest, GlobalWorkRunsOffTheMainThread) {
  bool done = false;
  DispatchQueue::global().async([&] {
    EXPECT_FALSE(RunLoop::isMainThread());
    EXPECT_TRUE(DispatchQueue::global().isCurrent());
    EXPECT_FALSE(DispatchQueue::main().isCurrent());
    DispatchQueue::main().async([&] { done = true; });
  });
  runUntil([&] { return done; });
}

TEST(DispatchQueueTest, GlobalWorkRunsConcurrently) {
  Gate first;
  Gate second;
  DispatchQueue::global().async([&] {
    second.wait();
    first.open();
  });
  DispatchQueue::global().async([&] { second.open(); });
  first.wait();
}

TEST(DispatchQueueTest, SerialWorkRunsInOrderAndAlone) {
  const auto queue = DispatchQueue::serial("a");
  std::vector<int> order;
  for (int i = 0; i < 100; ++i) {
    queue.async([&order, i, queue] {
      EXPECT_TRUE(queue.isCurrent());
      EXPECT_FALSE(DispatchQueue::global().isCurrent());
      order.push_back(i);
    });
  }
  queue.sync([] {});
  ASSERT_EQ(order.size(), 100U);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

TEST(DispatchQueueTest, SyncHandsBackWhatTheWorkReturned) {
  EXPECT_EQ(DispatchQueue::serial("a").sync([] { return 7; }), 7);
  EXPECT_EQ(DispatchQueue::main().sync([] { return std::string("main"); }), "main");
  EXPECT_EQ(*DispatchQueue::global().sync([] { return std::make_unique<int>(3); }), 3);
}

TEST(DispatchQueueTest, SyncPassesTheExceptionOn) {
  const auto fail = [] { throw std::runtime_error("thrown by work"); };
  const auto queue = DispatchQueue::serial("a");
  EXPECT_THROW(queue.sync(fail), std::runtime_error);
  EXPECT_THROW(DispatchQueue::global().sync(fail), std::runtime_error);
  EXPECT_THROW(DispatchQueue::main().sync(fail), std::runtime_error);
  EXPECT_EQ(queue.sync([] { return 1; }), 1);
}

TEST(DispatchQueueTest, SyncToTheMainQueueFromAWorkerRunsOnTheMainThread) {
  bool done = false;
  DispatchQueue::global().async([&] {
    EXPECT_TRUE(DispatchQueue::main().sync([] { return RunLoop::isMainThread(); }));
    EXPECT_THROW(DispatchQueue::main().sync([] { throw std::runtime_error("thrown on the main thread"); }),
                 std::runtime_error);
    DispatchQueue::main().async([&] { done = true; });
  });
  runUntil([&] { return done; });
}

TEST(DispatchQueueTest, SyncOnASerialQueueRunsOnTheCallingThread) {
  EXPECT_EQ(DispatchQueue::serial("a").sync([] { return std::this_thread::get_id(); }),
            std::this_thread::get_id());
}

TEST(DispatchQueueTest, SyncNeedsNoFreeWorker) {
  constexpr int blocked = 100;
  std::atomic<int> waiting = 0;
  Gate gate;
  int answered = 0;
  // More than there can be workers; all of them wait for the main thread.
  for (int i = 0; i < blocked; ++i) {
    DispatchQueue::global().async([&] {
      if (++waiting == detail::WorkerPool::mostThreads) gate.open();
      DispatchQueue::main().sync([&] { ++answered; });
    });
  }
  gate.wait();
  const auto queue = DispatchQueue::serial("a");
  std::vector<std::string> calls;
  queue.async([&] { calls.push_back("async"); });
  queue.sync([&] { calls.push_back("sync"); });
  EXPECT_THAT(calls, ElementsAre("async", "sync"));
  runUntil([&] { return answered == blocked; });
}

TEST(DispatchQueueTest, SyncWaitsForTheThreadThatIsAtWork) {
  const auto queue = DispatchQueue::serial("a");
  Gate started;
  Gate goOn;
  std::vector<std::string> calls;
  queue.async([&] {
    started.open();
    goOn.wait();
    calls.push_back("async");
  });
  started.wait();
  DispatchQueue::global().async([&] { goOn.open(); });
  queue.sync([&] { calls.push_back("sync"); });
  EXPECT_THAT(calls, ElementsAre("async", "sync"));
}

TEST(DispatchQueueDeathTest, SyncFromItsOwnWorkStopsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto queue = DispatchQueue::serial("requests");
  EXPECT_DEATH(queue.sync([&] { queue.sync([] {}); }),
               "fatal error: sync on the serial queue \"requests\" from its own work waits for itself");
}

TEST(DispatchQueueDeathTest, AsyncWithoutWorkStopsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(DispatchQueue::global().async(nullptr), "fatal error: DispatchQueue::async was given no work");
}

}  // namespace
}  // namespace tarsil
