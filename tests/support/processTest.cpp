#include "tarsil/support/process.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::KilledBySignal;
using testing::Pair;
using testing::ThrowsMessage;

class ProcessTest : public testing::Test {
 protected:
  ~ProcessTest() override { exchangeProcessHooks({}); }

  static void hookFatal(std::function<void(std::string_view)> fatal) {
    exchangeProcessHooks({.fatal = std::move(fatal), .neverReturn = {}, .print = {}});
  }
};

using ProcessDeathTest = ProcessTest;

TEST_F(ProcessDeathTest, FatalErrorWritesOneLineToStandardErrorAndAborts) {
  EXPECT_EXIT(fatalError("speed is nan"), KilledBySignal(SIGABRT), "^tarsil: fatal error: speed is nan\n$");
}

TEST_F(ProcessDeathTest, FatalErrorAbortsWhenTheHookReturns) {
  hookFatal([](std::string_view) {});
  EXPECT_EXIT(fatalError("speed is nan"), KilledBySignal(SIGABRT), "^tarsil: fatal error: speed is nan\n$");
}

TEST_F(ProcessDeathTest, FatalErrorLeavesTheEndToTheHook) {
  hookFatal([](std::string_view) { _exit(7); });
  EXPECT_EXIT(fatalError("speed is nan"), ExitedWithCode(7), "^$");
}

TEST_F(ProcessTest, AFatalHookMayThrow) {
  hookFatal([](std::string_view reason) { throw std::runtime_error(std::string(reason)); });
  EXPECT_THAT([] { fatalError("speed is nan"); }, ThrowsMessage<std::runtime_error>("speed is nan"));
}

TEST_F(ProcessTest, ANeverReturnHookMayThrow) {
  exchangeProcessHooks({.fatal = {}, .neverReturn = [] { throw std::runtime_error("stuck"); }, .print = {}});
  EXPECT_THAT([] { neverReturn(); }, ThrowsMessage<std::runtime_error>("stuck"));
}

TEST_F(ProcessTest, ScopedHooksStandBesideTheOthersUntilTheirEnd) {
  std::vector<std::string> lines;
  hookFatal([](std::string_view reason) { throw std::runtime_error(std::string(reason)); });
  {
    const ScopedProcessHooks hooks(
        {.print = [&](std::string_view text, PrintedText) { lines.emplace_back(text); }});
    printLine("heard", PrintedText::fixed);
    EXPECT_THAT([] { fatalError("speed is nan"); }, ThrowsMessage<std::runtime_error>("speed is nan"));
  }
  const ProcessHooks left = exchangeProcessHooks({});
  EXPECT_TRUE(left.fatal);
  EXPECT_FALSE(left.print);
  EXPECT_THAT(lines, ElementsAre("heard"));
}

TEST_F(ProcessTest, ScopedHooksReplaceEachThatTheyHave) {
  const auto stops = [](const char* text) { return [text](auto...) { throw std::runtime_error(text); }; };
  const ScopedProcessHooks hooks({.fatal = stops("fatal"),
                                  .neverReturn = stops("never"),
                                  .print = stops("print"),
                                  .atExit = [](void (*)()) { return 12; }});
  EXPECT_THAT([] { fatalError("speed is nan"); }, ThrowsMessage<std::runtime_error>("fatal"));
  EXPECT_THAT([] { neverReturn(); }, ThrowsMessage<std::runtime_error>("never"));
  EXPECT_THAT([] { printLine("", PrintedText::fixed); }, ThrowsMessage<std::runtime_error>("print"));
  EXPECT_EQ(atExit([] {}), 12);
}

TEST_F(ProcessDeathTest, AHandlerOfTheEndIsCalledAtTheEnd) {
  EXPECT_EXIT(
      {
        if (atExit([] { std::fputs("the end", stderr); }) == 0) std::exit(0);
      },
      ExitedWithCode(0), "^the end$");
}

TEST_F(ProcessTest, AnAtExitHookGetsTheHandlerAndGivesTheAnswer) {
  static void (*registered)() = nullptr;
  exchangeProcessHooks({.atExit = [](void (*handler)()) {
    registered = handler;
    return 12;
  }});
  void (*const handler)() = [] {};
  EXPECT_EQ(atExit(handler), 12);
  EXPECT_EQ(registered, handler);
}

TEST_F(ProcessDeathTest, TheProcessIsEndingOnceItWasSaid) {
  EXPECT_EXIT(
      {
        if (isProcessEnding()) std::_Exit(1);
        beginProcessEnd();
        std::_Exit(isProcessEnding() ? 0 : 2);
      },
      ExitedWithCode(0), "");
}

/// A process whose only thread never returns; it says so when a signal has interrupted it.
class StuckProcess {
 public:
  StuckProcess() {
    if (pipe(pipe_.data()) != 0) throw std::runtime_error("pipe");
    child_ = fork();
    if (child_ != 0) {
      close(pipe_[1]);
      return;
    }
    interruptions = pipe_[1];
    std::signal(SIGUSR1, sayInterrupted);
    sayInterrupted(0);
    neverReturn();
  }
  ~StuckProcess() {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
    close(pipe_[0]);
  }

  void interrupt() const { kill(child_, SIGUSR1); }
  /// False when the process has ended instead.
  bool awaitWord() const {
    char word = 0;
    return read(pipe_[0], &word, 1) == 1;
  }
  /// Waits until the kernel calls the process sleeping; one that uses the processor never is. False when it
  /// has ended instead.
  bool awaitSleep() const {
    for (char state = 0; state != 'Z'; std::this_thread::yield()) {
      std::ifstream stat("/proc/" + std::to_string(child_) + "/stat");
      stat.ignore(std::numeric_limits<std::streamsize>::max(), ')');
      stat >> state;
      if (state == 'S') return true;
    }
    return false;
  }

 private:
  static void sayInterrupted(int) {
    const char word = 'i';
    if (write(interruptions, &word, 1) != 1) _exit(2);
  }
  static inline int interruptions = -1;

  std::array<int, 2> pipe_{};
  pid_t child_ = -1;
};

TEST_F(ProcessTest, NeverReturnSleepsThroughSignals) {
  const StuckProcess process;
  ASSERT_TRUE(process.awaitWord()) << "ready";
  for (int signals = 0; signals < 3; ++signals) {
    ASSERT_TRUE(process.awaitSleep()) << "returned after " << signals << " signals";
    process.interrupt();
    ASSERT_TRUE(process.awaitWord()) << "ended by signal " << signals;
  }
  EXPECT_TRUE(process.awaitSleep());
}

TEST_F(ProcessTest, PrintLineWritesTheTextAndALineEndToStandardOutput) {
  testing::internal::CaptureStdout();
  printLine("串口未初始化 请先调用getPortWithIsSpO2方法", PrintedText::fixed);
  printLine("", PrintedText::diagnostic);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "串口未初始化 请先调用getPortWithIsSpO2方法\n\n");
}

TEST_F(ProcessDeathTest, PrintLineFlushes) {
  // _exit() leaves what is still in the buffer unwritten.
  EXPECT_EXIT(
      {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        printLine("create SpO2", PrintedText::fixed);
        _exit(0);
      },
      ExitedWithCode(0), "^create SpO2\n$");
}

TEST_F(ProcessTest, APrintHookReceivesEveryLineInsteadOfStandardOutput) {
  std::vector<std::pair<std::string, PrintedText>> lines;
  exchangeProcessHooks(
      {.fatal = {}, .neverReturn = {}, .print = [&](std::string_view text, PrintedText kind) {
         lines.emplace_back(text, kind);
       }});
  testing::internal::CaptureStdout();
  printLine("create SpO2", PrintedText::fixed);
  printLine("POSIX error 5", PrintedText::diagnostic);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_THAT(lines, ElementsAre(Pair("create SpO2", PrintedText::fixed),
                                 Pair("POSIX error 5", PrintedText::diagnostic)));
}

TEST_F(ProcessTest, ExchangingHandsBackTheHooksThatWereThere) {
  int printed = 0;
  exchangeProcessHooks(
      {.fatal = {}, .neverReturn = {}, .print = [&](std::string_view, PrintedText) { ++printed; }});
  const ProcessHooks mine = exchangeProcessHooks({});
  ASSERT_TRUE(mine.print);
  mine.print("", PrintedText::fixed);
  EXPECT_EQ(printed, 1);
  EXPECT_FALSE(exchangeProcessHooks({}).print);
}

}  // namespace
}  // namespace tarsil
