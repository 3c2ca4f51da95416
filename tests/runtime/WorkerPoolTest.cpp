#include "tarsil/runtime/detail/WorkerPool.hpp"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/runtime/DispatchSource.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tests/runtime/Gate.hpp"
#include "tests/runtime/descriptors.hpp"

namespace tarsil::detail {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;

/// Has a number of workers wait at the same time, until it ends.
class Occupation {
 public:
  Occupation(WorkerPool& pool, int count) : missing_(count), staying_(count) {
    for (int i = 0; i < count; ++i) pool.reactor()->post([this] { occupy(); });
    allCame_.wait();
  }
  ~Occupation() {
    release_.open();
    allLeft_.wait();
  }
  Occupation(const Occupation&) = delete;
  Occupation& operator=(const Occupation&) = delete;

 private:
  void occupy() {
    if (--missing_ == 0) allCame_.open();
    release_.wait();
    if (--staying_ == 0) allLeft_.open();
  }

  std::atomic<int> missing_;
  std::atomic<int> staying_;
  Gate allCame_;
  Gate release_;
  Gate allLeft_;
};

void waitForThreads(const WorkerPool& pool, int count) {
  while (pool.threadCount() != count) std::this_thread::yield();
}

/// A pool's threads never end for good, so it is never destroyed.
WorkerPool& makePool(std::chrono::milliseconds idleTime) {
  static std::vector<WorkerPool*>& pools = *new std::vector<WorkerPool*>;
  return *pools.emplace_back(new WorkerPool(idleTime));
}

TEST(WorkerPoolTest, StartsWithOneThread) {
  EXPECT_EQ(makePool(hours(1)).threadCount(), 1);
}

TEST(WorkerPoolTest, HasAThreadToSpareWhileWorkersAreBlocked) {
  auto& pool = makePool(hours(1));
  const Occupation blocked(pool, 5);
  waitForThreads(pool, 6);
}

TEST(WorkerPoolTest, GrowsToItsLimitAndWaitsThen) {
  auto& pool = makePool(hours(1));
  Gate ran;
  std::atomic<bool> early = true;
  {
    const Occupation blocked(pool, WorkerPool::mostThreads);
    EXPECT_EQ(pool.threadCount(), WorkerPool::mostThreads);
    pool.reactor()->post([&] {
      EXPECT_FALSE(early);
      ran.open();
    });
    early = false;
  }
  ran.wait();
  EXPECT_EQ(pool.threadCount(), WorkerPool::mostThreads);
}

TEST(WorkerPoolTest, AnAlarmThatBlocksItsThreadKeepsNoOtherFromRinging) {
  constexpr int count = 5;
  std::atomic<int> missing = count;
  std::atomic<int> cancelled = 0;
  Gate allRing;
  Gate allCancelled;
  std::vector<std::shared_ptr<DispatchSource>> sources;
  for (int i = 0; i < count; ++i) {
    // Late enough that all of them are due together.
    sources.push_back(
        DispatchSource::timer(milliseconds(20), hours(1), milliseconds(10), DispatchQueue::global()));
    sources.back()->setEventHandler([&] {
      if (--missing == 0) allRing.open();
      allRing.wait();
    });
    sources.back()->setCancelHandler([&] {
      if (++cancelled == count) allCancelled.open();
    });
  }
  for (const auto& source : sources) source->resume();
  allRing.wait();
  for (const auto& source : sources) source->cancel();
  allCancelled.wait();
}

TEST(WorkerPoolTest, SpareThreadsLeave) {
  auto& pool = makePool(milliseconds(1));
  { const Occupation blocked(pool, 10); }
  waitForThreads(pool, 2);
  Gate ran;
  pool.reactor()->post([&] { ran.open(); });
  ran.wait();
}

TEST(WorkerPoolTest, WorkersTakeNoSignals) {
  auto& pool = makePool(hours(1));
  Gate asked;
  pool.reactor()->post([&] {
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGTERM), 1);
    EXPECT_EQ(sigismember(&blocked, SIGCHLD), 1);
    asked.open();
  });
  asked.wait();
  sigset_t own;
  pthread_sigmask(SIG_SETMASK, nullptr, &own);
  EXPECT_EQ(sigismember(&own, SIGTERM), 0);
}

/// Hands work to every queue as the very last thing in the process.
struct LastWords {
  ~LastWords() {
    DispatchQueue::global().async([] {});
    DispatchQueue::serial("last").sync([] {});
    DispatchQueue::main().async([] {});
  }
};

[[noreturn]] void exitInTheMiddleOfEverything() {
  static const LastWords lastWords;
  static const auto pair = makePipe();
  static const auto timer = DispatchSource::timer(Duration(0), std::chrono::microseconds(100), Duration(0),
                                                  DispatchQueue::global());
  static const auto reader = DispatchSource::read(pair.reading.get(), DispatchQueue::serial("reader"));
  timer->setEventHandler([] {});
  timer->resume();
  reader->setEventHandler([] { receive(pair.reading.get()); });
  reader->resume();
  for (int i = 0; i < 10; ++i) DispatchQueue::global().async([] { DispatchQueue::main().sync([] {}); });
  send(pair.writing, "a");
  RunLoop::main().runFor(milliseconds(1));
  std::exit(0);
}

TEST(WorkerPoolDeathTest, TheProcessMayExitAtAnyTime) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (int i = 0; i < 5; ++i) EXPECT_EXIT(exitInTheMiddleOfEverything(), testing::ExitedWithCode(0), "");
}

TEST(WorkerPoolDeathTest, AnExceptionOnAWorkerEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        DispatchQueue::global().async([] { throw std::runtime_error("nobody is there to catch this"); });
        pause();
      },
      testing::KilledBySignal(SIGABRT), "nobody is there to catch this");
}

}  // namespace
}  // namespace tarsil::detail
