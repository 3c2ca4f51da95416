#include "tarsil/runtime/DispatchSource.hpp"

#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tests/runtime/descriptors.hpp"

namespace tarsil {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

void runUntil(const std::function<bool()>& condition) {
  ASSERT_TRUE(RunLoop::main().runUntil(condition, hours(1)));
}

struct Queue {
  const char* name;
  DispatchQueue (*make)();
};

const auto queues = testing::Values(Queue{"main", [] { return DispatchQueue::main(); }},
                                    Queue{"global", [] { return DispatchQueue::global(); }},
                                    Queue{"serial", [] { return DispatchQueue::serial("serial"); }});

std::string nameOf(const testing::TestParamInfo<Queue>& instance) {
  return instance.param.name;
}

/// A read source whose handler records on the main thread what it reads.
class ReadSourceTest : public testing::TestWithParam<Queue> {
 protected:
  void watch(int descriptor, std::size_t most = 1024) {
    source = DispatchSource::read(descriptor, GetParam().make());
    source->setEventHandler([this, descriptor, most] {
      ++wakes;
      record(receive(descriptor, most));
    });
    source->setCancelHandler([this] { record("cancelled"); });
    source->resume();
  }
  void record(std::string text) {
    DispatchQueue::main().async([this, text] { calls.push_back(text); });
  }
  /// Goes to the queue and back so often that a source that is ready would have had its turn.
  void letOthersTakeTheirTurns() {
    const auto queue = GetParam().make();
    int turns = 0;
    for (int i = 1; i <= 100; ++i) {
      queue.async([&] { DispatchQueue::main().async([&] { ++turns; }); });
      runUntil([&] { return turns == i; });
    }
  }
  void cancelAndWait() {
    source->cancel();
    runUntil([this] { return !calls.empty() && calls.back() == "cancelled"; });
  }

  std::shared_ptr<DispatchSource> source;
  std::atomic<int> wakes = 0;
  std::vector<std::string> calls;
};

TEST_P(ReadSourceTest, FiresForWhatIsReadable) {
  const auto pair = makePipe();
  watch(pair.reading.get());
  send(pair.writing, "one");
  runUntil([this] { return calls.size() == 1; });
  send(pair.writing, "two");
  runUntil([this] { return calls.size() == 2; });
  EXPECT_THAT(calls, ElementsAre("one", "two"));
  cancelAndWait();
}

TEST_P(ReadSourceTest, FiresAgainForWhatIsLeft) {
  const auto pair = makePipe();
  watch(pair.reading.get(), 2);
  send(pair.writing, "abcde");
  runUntil([this] { return calls.size() == 3; });
  EXPECT_THAT(calls, ElementsAre("ab", "cd", "e"));
  cancelAndWait();
}

TEST_P(ReadSourceTest, AnEndedPipeFiresUntilItIsEmptyAndOnceMore) {
  auto pair = makePipe();
  send(pair.writing, "abcd");
  pair.writing = {};
  watch(pair.reading.get(), 2);
  runUntil([this] { return calls.size() == 3; });
  letOthersTakeTheirTurns();
  EXPECT_THAT(calls, ElementsAre("ab", "cd", ""));
  cancelAndWait();
}

TEST_P(ReadSourceTest, AnEmptyPipeThatEndsFiresOnce) {
  auto pair = makePipe();
  watch(pair.reading.get());
  pair.writing = {};
  runUntil([this] { return calls.size() == 1; });
  letOthersTakeTheirTurns();
  EXPECT_THAT(calls, ElementsAre(""));
  cancelAndWait();
}

TEST_P(ReadSourceTest, ASocketWhosePeerOnlyStoppedSendingFiresOnce) {
  const auto pair = makeSockets();
  watch(pair.reading.get());
  shutdown(pair.writing.get(), SHUT_WR);
  runUntil([this] { return calls.size() == 1; });
  letOthersTakeTheirTurns();
  EXPECT_THAT(calls, ElementsAre(""));
  EXPECT_EQ(wakes, 1);
  cancelAndWait();
}

TEST_P(ReadSourceTest, ATerminalThatHungUpFiresOnce) {
  auto pair = makeTerminal();
  watch(pair.reading.get());
  send(pair.writing, "abc");
  runUntil([this] { return calls.size() == 1; });
  pair.writing = {};
  runUntil([this] { return calls.size() == 2; });
  letOthersTakeTheirTurns();
  EXPECT_THAT(calls, ElementsAre("abc", ""));
  EXPECT_EQ(wakes, 2);
  cancelAndWait();
}

TEST_P(ReadSourceTest, ARegularFileNeverFires) {
  const FileDescriptor file(open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
  watch(file.get());
  letOthersTakeTheirTurns();
  EXPECT_EQ(wakes, 0);
  cancelAndWait();
}

INSTANTIATE_TEST_SUITE_P(Queues, ReadSourceTest, queues, nameOf);

/// On virtual time a source that fired over and over would keep `settle()` from returning.
class SettledReadSourceTest : public testing::Test {
 protected:
  void watch(int descriptor) {
    source = DispatchSource::read(descriptor, DispatchQueue::global());
    source->setEventHandler([this, descriptor] { calls.push_back(receive(descriptor, 2)); });
    source->setCancelHandler([this] { calls.push_back("cancelled"); });
    source->resume();
  }
  std::vector<std::string> settle() {
    time.settle();
    return std::exchange(calls, {});
  }

  VirtualTime time;
  std::shared_ptr<DispatchSource> source;
  std::vector<std::string> calls;
};

TEST_F(SettledReadSourceTest, APipe) {
  auto pair = makePipe();
  watch(pair.reading.get());
  send(pair.writing, "abc");
  EXPECT_THAT(settle(), ElementsAre("ab", "c"));
  send(pair.writing, "de");
  pair.writing = {};
  EXPECT_THAT(settle(), ElementsAre("de", ""));
  EXPECT_THAT(settle(), IsEmpty());
  source->cancel();
  EXPECT_THAT(settle(), ElementsAre("cancelled"));
}

TEST_F(SettledReadSourceTest, ATerminal) {
  auto pair = makeTerminal();
  watch(pair.reading.get());
  // Bytes on their way through a terminal count as readable, each time.
  for (int i = 0; i < 1000; ++i) {
    send(pair.writing, "a");
    ASSERT_THAT(settle(), ElementsAre("a"));
  }
  pair.writing = {};
  EXPECT_THAT(settle(), ElementsAre(""));
  EXPECT_THAT(settle(), IsEmpty());
}

TEST_F(SettledReadSourceTest, TheControllingSideOfATerminal) {
  auto pair = makeTerminal();
  watch(pair.writing.get());
  send(pair.reading, "abc");
  pair.reading = {};
  EXPECT_THAT(settle(), ElementsAre("ab", "c", ""));
  EXPECT_THAT(settle(), IsEmpty());
}

TEST_F(SettledReadSourceTest, ASocketWhosePeerIsGone) {
  auto pair = makeSockets();
  watch(pair.reading.get());
  send(pair.writing, "abc");
  pair.writing = {};
  EXPECT_THAT(settle(), ElementsAre("ab", "c", ""));
  EXPECT_THAT(settle(), IsEmpty());
}

TEST_F(SettledReadSourceTest, ARegularFile) {
  const FileDescriptor file(open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
  watch(file.get());
  EXPECT_THAT(settle(), IsEmpty());
  source->cancel();
  EXPECT_THAT(settle(), ElementsAre("cancelled"));
}

TEST_F(SettledReadSourceTest, ASocketWhoseErrorHasPassedGoesOn) {
  // A datagram to a closed port comes back as an error of the next call; the socket itself is sound.
  const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_in own{};
  own.sin_family = AF_INET;
  own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof own;
  ASSERT_EQ(bind(socket.get(), reinterpret_cast<sockaddr*>(&own), length), 0);
  ASSERT_EQ(getsockname(socket.get(), reinterpret_cast<sockaddr*>(&own), &length), 0);
  sockaddr_in closed = own;
  {
    const FileDescriptor other(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    closed.sin_port = 0;
    ASSERT_EQ(bind(other.get(), reinterpret_cast<sockaddr*>(&closed), length), 0);
    ASSERT_EQ(getsockname(other.get(), reinterpret_cast<sockaddr*>(&closed), &length), 0);
  }
  ASSERT_EQ(connect(socket.get(), reinterpret_cast<sockaddr*>(&closed), length), 0);
  ASSERT_EQ(write(socket.get(), "x", 1), 1);
  watch(socket.get());
  EXPECT_THAT(settle(), ElementsAre(""));
  ASSERT_EQ(connect(socket.get(), reinterpret_cast<sockaddr*>(&own), length), 0);
  send(socket, "ok");
  EXPECT_THAT(settle(), ElementsAre("ok"));
}

/// What holds for every source, shown with a timer.
class SourceLifeTest : public testing::TestWithParam<Queue> {
 protected:
  std::shared_ptr<DispatchSource> beat() {
    auto source = DispatchSource::timer(milliseconds(1), milliseconds(1), milliseconds(0), queue);
    source->setEventHandler(record("event"));
    source->setCancelHandler(record("cancel"));
    return source;
  }
  Work record(std::string name) {
    return [this, name] {
      EXPECT_TRUE(queue.isCurrent());
      calls.push_back(name);
    };
  }

  VirtualTime time;
  const DispatchQueue queue = GetParam().make();
  std::vector<std::string> calls;
};

TEST_P(SourceLifeTest, StartsSuspended) {
  const auto source = beat();
  time.advance(milliseconds(10));
  EXPECT_THAT(calls, IsEmpty());
  EXPECT_FALSE(source->isCancelled());
}

TEST_P(SourceLifeTest, ResumingTwiceChangesNothing) {
  const auto source = beat();
  source->resume();
  source->resume();
  time.advance(milliseconds(2));
  EXPECT_THAT(calls, ElementsAre("event", "event"));
}

TEST_P(SourceLifeTest, CancelRunsTheCancelHandlerOnceAndLast) {
  const auto source = beat();
  source->resume();
  time.advance(milliseconds(1));
  source->cancel();
  source->cancel();
  EXPECT_TRUE(source->isCancelled());
  EXPECT_THAT(calls, ElementsAre("event"));
  time.advance(milliseconds(10));
  EXPECT_THAT(calls, ElementsAre("event", "cancel"));
}

TEST_P(SourceLifeTest, CancelBeforeResumeRunsTheCancelHandler) {
  const auto source = beat();
  source->cancel();
  source->resume();
  time.advance(milliseconds(10));
  EXPECT_THAT(calls, ElementsAre("cancel"));
}

TEST_P(SourceLifeTest, TheEventHandlerMayCancel) {
  auto source = beat();
  source->setEventHandler([&] {
    source->cancel();
    source->cancel();
    calls.push_back("event ends");
  });
  source->resume();
  time.advance(milliseconds(10));
  EXPECT_THAT(calls, ElementsAre("event ends", "cancel"));
}

TEST_P(SourceLifeTest, DroppingTheLastReferenceCancels) {
  beat()->resume();
  beat().reset();
  time.advance(milliseconds(10));
  EXPECT_THAT(calls, ElementsAre("cancel", "cancel"));
}

TEST_P(SourceLifeTest, TheEventHandlerMayDropTheLastReference) {
  auto source = beat();
  source->setEventHandler([&] {
    source.reset();
    calls.push_back("event ends");
  });
  source->resume();
  time.advance(milliseconds(10));
  EXPECT_THAT(calls, ElementsAre("event ends", "cancel"));
}

TEST_P(SourceLifeTest, BothHandlersAreLetGoAfterTheCancelHandler) {
  const auto held = std::make_shared<int>();
  const auto source = beat();
  source->setEventHandler([held] {});
  source->setCancelHandler([this, held] { calls.push_back(std::to_string(held.use_count())); });
  source->resume();
  source->cancel();
  time.settle();
  EXPECT_THAT(calls, ElementsAre("3"));
  EXPECT_EQ(held.use_count(), 1);
}

TEST_P(SourceLifeTest, HandlersSetAfterCancelAreNotKept) {
  const auto held = std::make_shared<int>();
  const auto source = beat();
  source->cancel();
  source->setEventHandler([held] {});
  source->setCancelHandler([held] {});
  EXPECT_EQ(held.use_count(), 1);
  time.settle();
  EXPECT_THAT(calls, ElementsAre("cancel"));
}

TEST_P(SourceLifeTest, NoCancelHandlerIsNeeded) {
  const auto source = DispatchSource::timer(milliseconds(1), milliseconds(1), milliseconds(0), queue);
  source->setEventHandler(record("event"));
  source->resume();
  time.advance(milliseconds(1));
  source->cancel();
  time.advance(milliseconds(1));
  EXPECT_THAT(calls, ElementsAre("event"));
}

TEST_P(SourceLifeTest, ASourceGoesOnAfterAnException) {
  const auto source = beat();
  source->setEventHandler([&] {
    calls.push_back("event");
    if (calls.size() == 1) throw std::runtime_error("thrown by the handler");
  });
  source->resume();
  EXPECT_THROW(time.advance(milliseconds(2)), std::runtime_error);
  time.advance(milliseconds(1));
  source->cancel();
  time.settle();
  EXPECT_THAT(calls, ElementsAre("event", "event", "cancel"));
}

TEST_P(SourceLifeTest, AnEventThatIsDueAtTheInstantOfTheCancelDoesNotCome) {
  const auto timer = Timer::scheduled(milliseconds(1), false, [this](Timer&) { calls.push_back("timer"); });
  const auto source = beat();
  const auto canceller = Timer::scheduled(Duration(0), false, [&](Timer&) {
    RunLoop::main().runUntil([this] { return !calls.empty(); }, milliseconds(10));
    source->cancel();
  });
  source->resume();
  time.advance(milliseconds(10));
  EXPECT_THAT(calls, ElementsAre("timer", "cancel"));
}

INSTANTIATE_TEST_SUITE_P(Queues, SourceLifeTest, queues, nameOf);

TEST(TimerSourceTest, KeepsItsBeatAndLeavesOutWhatItMissed) {
  VirtualTime time;
  const auto start = Clock::now();
  std::vector<Duration> beats;
  const auto source =
      DispatchSource::timer(milliseconds(5), milliseconds(10), milliseconds(5), DispatchQueue::main());
  source->setEventHandler([&] {
    beats.push_back(Clock::now() - start);
    if (beats.size() == 2) RunLoop::main().runFor(milliseconds(25));
  });
  source->resume();
  time.advance(milliseconds(60));
  EXPECT_THAT(beats, ElementsAre(milliseconds(5), milliseconds(15), milliseconds(45), milliseconds(55)));
}

TEST(TimerSourceTest, BeatsNoFasterThanTenTimesAMillisecond) {
  VirtualTime time;
  int beats = 0;
  const auto source =
      DispatchSource::timer(milliseconds(-1), Duration(0), Duration(-1), DispatchQueue::global());
  source->setEventHandler([&] { ++beats; });
  source->resume();
  time.advance(milliseconds(1));
  EXPECT_EQ(beats, 11);
}

/// On the machine's clock, with real threads.
class ThreadedSourceTest : public testing::TestWithParam<Queue> {};

TEST_P(ThreadedSourceTest, ATimerFiresOnItsQueueAndNeverBesidesItself) {
  const auto queue = GetParam().make();
  std::atomic<int> inside = 0;
  int beats = 0;
  bool cancelled = false;
  const auto source =
      DispatchSource::timer(Duration(0), std::chrono::microseconds(100), milliseconds(0), queue);
  source->setEventHandler([&] {
    EXPECT_TRUE(queue.isCurrent());
    EXPECT_EQ(++inside, 1);
    if (++beats == 50) source->cancel();
    --inside;
  });
  source->setCancelHandler([&] {
    EXPECT_TRUE(queue.isCurrent());
    EXPECT_EQ(inside, 0);
    DispatchQueue::main().async([&] { cancelled = true; });
  });
  source->resume();
  runUntil([&] { return cancelled; });
  EXPECT_EQ(beats, 50);
}

TEST_P(ThreadedSourceTest, CancelsFromAllSidesAtOnceCountOnce) {
  for (int round = 0; round < 50; ++round) {
    std::atomic<int> cancels = 0;
    std::atomic<bool> ended = false;
    bool settled = false;
    const auto source = DispatchSource::timer(Duration(0), std::chrono::microseconds(100), milliseconds(0),
                                              GetParam().make());
    source->setEventHandler([&] {
      EXPECT_FALSE(ended);
      source->cancel();
    });
    source->setCancelHandler([&] {
      ended = true;
      ++cancels;
      DispatchQueue::main().async([&] { settled = true; });
    });
    source->resume();
    std::thread other([&] { source->cancel(); });
    source->cancel();
    other.join();
    runUntil([&] { return settled; });
    EXPECT_EQ(cancels, 1);
  }
}

TEST_P(ThreadedSourceTest, TheCancelHandlerWaitsForTheEndOfTheEventHandler) {
  for (int round = 0; round < 50; ++round) {
    std::atomic<bool> ended = false;
    bool settled = false;
    const auto source =
        DispatchSource::timer(Duration(0), milliseconds(1), milliseconds(0), GetParam().make());
    source->setEventHandler([&] {
      source->cancel();
      // Others have their turns meanwhile, after whatever the cancel has put before them.
      for (int turn = 0; turn < 3; ++turn) {
        std::promise<void> taken;
        DispatchQueue::global().async([&] { taken.set_value(); });
        taken.get_future().wait();
      }
      EXPECT_FALSE(ended);
    });
    source->setCancelHandler([&] {
      ended = true;
      DispatchQueue::main().async([&] { settled = true; });
    });
    source->resume();
    runUntil([&] { return settled; });
  }
}

INSTANTIATE_TEST_SUITE_P(Queues, ThreadedSourceTest, queues, nameOf);

class DispatchSourceDeathTest : public testing::Test {
 protected:
  VirtualTime time;
  Pair pair = makePipe();
  std::shared_ptr<DispatchSource> source = DispatchSource::read(pair.reading.get(), DispatchQueue::global());
};

TEST_F(DispatchSourceDeathTest, ResumeWithoutAnEventHandler) {
  EXPECT_DEATH(source->resume(), "fatal error: resume\\(\\) on a source without an event handler");
}

TEST_F(DispatchSourceDeathTest, AHandlerThatComesTooLate) {
  source->setEventHandler([] {});
  source->resume();
  EXPECT_DEATH(source->setEventHandler([] {}),
               "fatal error: setEventHandler on a source that was resumed already");
  EXPECT_DEATH(source->setCancelHandler([] {}),
               "fatal error: setCancelHandler on a source that was resumed already");
}

TEST_F(DispatchSourceDeathTest, TwoSourcesOnOneDescriptor) {
  source->setEventHandler([] {});
  source->resume();
  const auto second = DispatchSource::read(pair.reading.get(), DispatchQueue::global());
  second->setEventHandler([] {});
  EXPECT_DEATH(second->resume(), "fatal error: cannot watch descriptor [0-9]+: File exists");
}

TEST_F(DispatchSourceDeathTest, AClosedDescriptor) {
  source->setEventHandler([] {});
  pair.reading = {};
  EXPECT_DEATH(source->resume(), "fatal error: cannot watch descriptor [0-9]+: Bad file descriptor");
}

TEST_F(DispatchSourceDeathTest, ADescriptorThatIsClosedTooEarly) {
  source->setEventHandler([this] { pair.reading = {}; });
  source->resume();
  send(pair.writing, "a");
  EXPECT_DEATH(time.settle(), "fatal error: cannot go on watching descriptor [0-9]+: Bad file descriptor");
}

}  // namespace
}  // namespace tarsil
