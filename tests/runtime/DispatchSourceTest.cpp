#include "tarsil/runtime/DispatchSource.hpp"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/detail/FileDescriptor.hpp"

namespace tarsil {
namespace {

using detail::FileDescriptor;
using std::chrono::hours;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

struct Pair {
  FileDescriptor reading;
  FileDescriptor writing;
};

Pair makePipe() {
  std::array<int, 2> ends{};
  EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

Pair makeSockets() {
  std::array<int, 2> ends{};
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

/// The reading side is the terminal that a port would open, the writing one its other end.
Pair makeTerminal() {
  FileDescriptor controlling(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  EXPECT_EQ(grantpt(controlling.get()), 0);
  EXPECT_EQ(unlockpt(controlling.get()), 0);
  std::array<char, 64> name{};
  EXPECT_EQ(ptsname_r(controlling.get(), name.data(), name.size()), 0);
  FileDescriptor terminal(open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  termios raw{};
  tcgetattr(terminal.get(), &raw);
  cfmakeraw(&raw);
  tcsetattr(terminal.get(), TCSANOW, &raw);
  return {std::move(terminal), std::move(controlling)};
}

void send(const FileDescriptor& descriptor, const std::string& text) {
  ASSERT_EQ(write(descriptor.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

/// At most `most` bytes; an empty text at the end of the stream and after a hang-up.
std::string receive(int descriptor, std::size_t most = 1024) {
  std::string text(most, '\0');
  const auto count = read(descriptor, text.data(), text.size());
  text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return text;
}

void runUntil(const std::function<bool()>& condition) {
  ASSERT_TRUE(RunLoop::main().runUntil(condition, hours(1)));
}

/// Lets everything happen that would happen at once. What happens late, or over and over, shows itself here.
void runForAWhile() {
  RunLoop::main().runFor(milliseconds(20));
}

struct Queue {
  const char* name;
  DispatchQueue (*make)();
};

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

TEST_P(ReadSourceTest, AnEndedPipeFiresUntilItIsEmptyAndOnceMoreAtMost) {
  auto pair = makePipe();
  send(pair.writing, "abcd");
  pair.writing = FileDescriptor();
  watch(pair.reading.get(), 2);
  runUntil([this] { return calls.size() == 2; });
  runForAWhile();
  EXPECT_THAT(calls, ElementsAre("ab", "cd"));
  cancelAndWait();
}

TEST_P(ReadSourceTest, AnEmptyPipeThatEndsFiresOnce) {
  auto pair = makePipe();
  watch(pair.reading.get());
  pair.writing = FileDescriptor();
  runUntil([this] { return calls.size() == 1; });
  runForAWhile();
  EXPECT_THAT(calls, ElementsAre(""));
  cancelAndWait();
}

TEST_P(ReadSourceTest, ASocketWhosePeerOnlyStoppedSendingFiresOnce) {
  const auto pair = makeSockets();
  watch(pair.reading.get());
  shutdown(pair.writing.get(), SHUT_WR);
  runUntil([this] { return calls.size() == 1; });
  runForAWhile();
  EXPECT_THAT(calls, ElementsAre(""));
  EXPECT_EQ(wakes, 1);
  cancelAndWait();
}

TEST_P(ReadSourceTest, ATerminalThatHungUpFiresOnce) {
  auto pair = makeTerminal();
  watch(pair.reading.get());
  send(pair.writing, "abc");
  runUntil([this] { return calls.size() == 1; });
  pair.writing = FileDescriptor();
  runUntil([this] { return calls.size() == 2; });
  runForAWhile();
  EXPECT_THAT(calls, ElementsAre("abc", ""));
  EXPECT_EQ(wakes, 2);
  cancelAndWait();
}

TEST_P(ReadSourceTest, ARegularFileNeverFires) {
  const FileDescriptor file(open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
  watch(file.get());
  runForAWhile();
  EXPECT_EQ(wakes, 0);
  cancelAndWait();
}

INSTANTIATE_TEST_SUITE_P(Queues, ReadSourceTest,
                         testing::Values(Queue{"main", [] { return DispatchQueue::main(); }},
                                         Queue{"global", [] { return DispatchQueue::global(); }},
                                         Queue{"serial", [] { return DispatchQueue::serial("reader"); }}),
                         [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
}  // namespace tarsil
