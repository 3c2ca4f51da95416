#include <atomic>
#include <memory>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/runtime/DispatchSource.hpp"
#include "tarsil/runtime/NotificationCenter.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tests/runtime/descriptors.hpp"

namespace tarsil {
namespace {

using std::chrono::hours;
using std::chrono::microseconds;

/// Runs the main loop until `condition` holds.
void runUntil(const std::function<bool()>& condition) {
  ASSERT_TRUE(RunLoop::main().runUntil(condition, hours(1)));
}

/// Runs `work` on several threads at once while the main loop runs, until all are through.
void onSeveralThreads(int count, const std::function<void(unsigned seed)>& work) {
  int left = count;
  std::vector<std::thread> threads;
  for (unsigned seed = 0; seed < static_cast<unsigned>(count); ++seed) {
    threads.emplace_back([&, seed] {
      work(seed);
      DispatchQueue::main().async([&] { --left; });
    });
  }
  runUntil([&] { return left == 0; });
  for (auto& thread : threads) thread.join();
}

TEST(StressTest, ThousandsOfSerialQueues) {
  constexpr int threads = 4;
  constexpr int queuesEach = 500;
  constexpr int piecesEach = 8;
  std::atomic<int> ran = 0;
  onSeveralThreads(threads, [&](unsigned) {
    for (int i = 0; i < queuesEach; ++i) {
      const auto queue = DispatchQueue::serial("stress");
      // Only the queue guards it: two pieces at once, or out of order, show themselves.
      const auto count = std::make_shared<int>(0);
      for (int piece = 0; piece < piecesEach; ++piece) {
        queue.async([&, count, piece] {
          EXPECT_EQ((*count)++, piece);
          ++ran;
        });
      }
      EXPECT_EQ(queue.sync([&] { return *count; }), piecesEach);
    }
  });
  EXPECT_EQ(ran, threads * queuesEach * piecesEach);
}

TEST(StressTest, OneSerialQueueForManyThreads) {
  constexpr int threads = 6;
  constexpr int rounds = 500;
  const auto queue = DispatchQueue::serial("shared");
  int asynchronous = 0;
  int synchronous = 0;
  onSeveralThreads(threads, [&](unsigned) {
    for (int i = 0; i < rounds; ++i) {
      queue.async([&] { ++asynchronous; });
      queue.sync([&] { ++synchronous; });
      EXPECT_THROW(queue.sync([] { throw std::runtime_error("stress"); }), std::runtime_error);
    }
  });
  EXPECT_EQ(queue.sync([&] { return asynchronous; }), threads * rounds);
  EXPECT_EQ(synchronous, threads * rounds);
}

TEST(StressTest, WorkersThatWaitForTheMainThreadWhileItWaitsForQueues) {
  constexpr int rounds = 300;
  const auto queue = DispatchQueue::serial("port");
  int answered = 0;
  int queued = 0;
  for (int i = 0; i < rounds; ++i) {
    DispatchQueue::global().async([&] {
      queue.sync([&] { ++queued; });
      DispatchQueue::main().sync([&] { ++answered; });
    });
    DispatchQueue::main().async([&] { queue.sync([&] { ++queued; }); });
  }
  runUntil([&] { return answered == rounds; });
  EXPECT_EQ(queue.sync([&] { return queued; }), 2 * rounds);
}

TEST(StressTest, ThousandsOfTimersAndCancels) {
  constexpr int threads = 4;
  constexpr int sourcesEach = 600;
  int cancelled = 0;
  std::atomic<int> firedAfterTheEnd = 0;
  onSeveralThreads(threads, [&](unsigned seed) {
    std::mt19937 random(seed);
    const auto serial = DispatchQueue::serial("timers");
    const DispatchQueue queues[] = {DispatchQueue::main(), DispatchQueue::global(), serial};
    std::vector<std::shared_ptr<DispatchSource>> sources;
    for (int i = 0; i < sourcesEach; ++i) {
      const auto ended = std::make_shared<std::atomic<bool>>(false);
      auto source = DispatchSource::timer(microseconds(random() % 500), microseconds(100 + random() % 400),
                                          microseconds(random() % 300), queues[random() % 3]);
      source->setEventHandler([&, ended, weak = std::weak_ptr(source), cancels = random() % 2 == 0] {
        if (*ended) ++firedAfterTheEnd;
        const auto self = weak.lock();
        if (self && cancels) self->cancel();
      });
      source->setCancelHandler([&, ended] {
        if (ended->exchange(true)) ++firedAfterTheEnd;
        DispatchQueue::main().async([&] { ++cancelled; });
      });
      if (random() % 10 != 0) source->resume();
      sources.push_back(std::move(source));
      // Now and then one of the older ones goes, by cancel or by being dropped.
      auto& other = sources[random() % sources.size()];
      if (random() % 4 == 0 && other) other->cancel();
      if (random() % 4 == 0) other.reset();
    }
  });
  // Each thread has dropped its sources; every one of them gets its cancel handler.
  runUntil([&] { return cancelled == threads * sourcesEach; });
  EXPECT_EQ(firedAfterTheEnd, 0);
}

TEST(StressTest, HundredsOfDescriptorsThatCloseUnderway) {
  constexpr int threads = 4;
  constexpr int pipesEach = 100;
  int closed = 0;
  std::atomic<int> bytes = 0;
  onSeveralThreads(threads, [&](unsigned seed) {
    std::mt19937 random(seed);
    const auto serial = DispatchQueue::serial("readers");
    const DispatchQueue queues[] = {DispatchQueue::main(), DispatchQueue::global(), serial};
    for (int i = 0; i < pipesEach; ++i) {
      // The cancel handler closes the descriptor; its number is soon another pipe's.
      const auto pipe = std::make_shared<Pair>(makePipe());
      const int descriptor = pipe->reading.get();
      const auto source = DispatchSource::read(descriptor, queues[random() % 3]);
      source->setEventHandler([&, descriptor] { bytes += static_cast<int>(receive(descriptor, 2).size()); });
      source->setCancelHandler([&, pipe] {
        pipe->reading = {};
        DispatchQueue::main().async([&] { ++closed; });
      });
      source->resume();
      send(pipe->writing, "abcdef");
      if (random() % 2 == 0) pipe->writing = {};
      if (random() % 2 == 0) DispatchQueue::global().async([source] { source->cancel(); });
    }
  });
  runUntil([&] { return closed == threads * pipesEach; });
  EXPECT_LE(bytes, threads * pipesEach * 6);
}

TEST(StressTest, LoopsOnManyThreads) {
  constexpr int threads = 16;
  constexpr int timersEach = 50;
  std::atomic<int> fired = 0;
  onSeveralThreads(threads, [&](unsigned seed) {
    std::mt19937 random(seed);
    int left = timersEach;
    for (int i = 0; i < timersEach; ++i) {
      Timer::scheduled(microseconds(random() % 2000), i % 2 == 0, [&](Timer& timer) {
        ++fired;
        timer.invalidate();
        if (--left == 0) RunLoop::current().stop();
      });
    }
    RunLoop::current().run();
  });
  EXPECT_EQ(fired, threads * timersEach);
}

TEST(StressTest, ObserversThatComeAndGoWhileOthersPost) {
  auto& center = NotificationCenter::defaultCenter();
  std::atomic<int> calls = 0;
  const auto steady = center.addObserver("stress", [&](const Notification&) { ++calls; });
  std::atomic<int> passing = 0;
  onSeveralThreads(4, [&](unsigned seed) {
    for (int i = 0; i < 500; ++i) {
      const auto observation = center.addObserver("stress", [&](const Notification&) { ++passing; });
      if (seed % 2 == 0) center.post({"stress"});
    }
  });
  EXPECT_EQ(calls, 1000);
  EXPECT_GE(passing, 1000);
}

}  // namespace
}  // namespace tarsil
