#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <variant>
#include <vector>

#include "tarsil/guard/Journal.hpp"
#include "tarsil/guard/eventText.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tests/helpers/ChildProcess.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;

/// `tarsil simulate`: the machine under the patient.
class Treadmill {
 public:
  Treadmill() : program_({TARSIL_PROGRAM, "simulate", "LodeTreadmill", "--orders"}) {
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return !program_.lines().empty(); }, 30s));
    path_ = program_.lines().empty() ? "" : program_.lines().front();
  }

  const std::string& path() const { return path_; }
  void order(const std::string& order) { program_.writeLine(order); }
  /// Waits until its belt is as these words say: "running", "stopped".
  bool isSoon(const std::string& words, Duration timeout = 30s) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    do {
      program_.writeLine("status");
      if (program_.waitForLine("belt " + words, 100ms)) return true;
    } while (std::chrono::steady_clock::now() < end);
    return false;
  }

 private:
  ChildProcess program_;
  std::string path_;
};

class GuardedExamplesTest : public testing::Test {
 protected:
  GuardedExamplesTest() {
    std::string folder = std::filesystem::temp_directory_path() / "guarded-examples-XXXXXX";
    home = mkdtemp(folder.data());
    setenv("HOME", home.c_str(), 1);
  }
  ~GuardedExamplesTest() override { std::filesystem::remove_all(home); }

  std::string home;
  Treadmill treadmill;
};

class PlainHostTest : public GuardedExamplesTest {
 protected:
  PlainHostTest() { EXPECT_TRUE(treadmill.isSoon("running")) << "it does not begin to walk"; }

  ChildProcess host{{PLAIN_HOST, treadmill.path()}};
};

TEST_F(PlainHostTest, StopsTheBeltBeforeItEnds) {
  host.writeLine("");
  EXPECT_EQ(host.wait(), 0);
  EXPECT_TRUE(treadmill.isSoon("stopped"));
}

TEST_F(PlainHostTest, AnInterruptStopsTheBelt) {
  host.signal(SIGINT);
  EXPECT_EQ(host.wait(), 0);
  EXPECT_TRUE(treadmill.isSoon("stopped"));
}

TEST_F(PlainHostTest, ABeltWhoseHostIsKilledStops) {
  host.signal(SIGKILL);
  EXPECT_TRUE(treadmill.isSoon("stopped"));
}

TEST_F(PlainHostTest, ABeltWhoseHostIsFrozenStopsAndTheHostComesBackLatched) {
  host.signal(SIGSTOP);
  EXPECT_TRUE(treadmill.isSoon("stopped"));
  host.signal(SIGCONT);
  EXPECT_TRUE(host.waitForLine("session: PROTECTIVE STOP"));
  host.writeLine("");
  EXPECT_EQ(host.wait(), 0);
}

TEST_F(PlainHostTest, ABeltThatFallsSilentIsStoppedAllTheSame) {
  treadmill.order("silence on");
  EXPECT_TRUE(treadmill.isSoon("stopped"));
}

TEST_F(PlainHostTest, ACableThatIsPulledIsAnAlarm) {
  treadmill.order("disconnect");
  EXPECT_TRUE(host.waitForLine("session: PROTECTIVE STOP"));
}

TEST_F(PlainHostTest, AKilledHostLeavesItsJournal) {
  const auto wordsOf = [](const std::vector<std::string>& lines) {
    std::vector<std::string> words;
    for (const auto& line : lines) {
      if (line.find(": ") != std::string::npos) words.push_back(line);
    }
    return words;
  };
  const auto early = wordsOf(host.lines());
  // Polls are a second apart: two of them later, nothing of that may be missing.
  for (int poll = 0; poll < 2; ++poll) {
    const auto count = host.lines().size();
    const auto isPolled = [&] {
      const auto& lines = host.lines();
      return std::find(lines.begin() + static_cast<std::ptrdiff_t>(count), lines.end(),
                       "exercise: request load") != lines.end();
    };
    ASSERT_TRUE(RunLoop::main().runUntil(isPolled, 30s));
  }
  host.signal(SIGKILL);
  host.wait();

  const std::filesystem::path journals = home + "/.local/state/tarsil/journals";
  std::vector<Journal> found;
  for (const auto& file : std::filesystem::directory_iterator(journals)) {
    std::ifstream stream(file.path());
    found.push_back(readJournal(std::string(std::istreambuf_iterator<char>(stream), {})).value());
  }
  ASSERT_EQ(found.size(), 1U);
  std::vector<std::string> written;
  bool sent = false;
  bool received = false;
  for (const Event& event : found[0].events) {
    sent = sent || std::holds_alternative<Sent>(event.what);
    received = received || std::holds_alternative<Received>(event.what);
    const EventText text = textOf(event, StressDeviceType::Treadmill);
    if (text.kind != EventKind::traffic)
      written.push_back(std::string(roleOf(event.source)) + ": " + text.text);
  }
  EXPECT_TRUE(sent && received);
  ASSERT_GE(written.size(), early.size());
  written.resize(early.size());
  EXPECT_EQ(written, early);
}

TEST_F(PlainHostTest, TheNextHostTakesTheBeltOverFromADeadOne) {
  host.signal(SIGKILL);
  host.wait();
  ChildProcess next({PLAIN_HOST, treadmill.path()});
  EXPECT_TRUE(next.waitForLine("session: the watcher process of an earlier host"))
      << testing::PrintToString(next.lines());
  next.writeLine("");
  EXPECT_EQ(next.wait(), 0);
  EXPECT_TRUE(treadmill.isSoon("stopped"));
}

}  // namespace
}  // namespace tarsil
