#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
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

void letTimePass(Duration duration) {
  RunLoop::main().runUntil([] { return false; }, duration);
}

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

/// A screen that nobody sees, and the hand on the mouse.
class Screen {
 public:
  // It stays as it is when the last window on it goes.
  Screen() : server_({"Xvfb", "-displayfd", "1", "-screen", "0", "800x600x24", "-noreset"}) {
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return !server_.lines().empty(); }, 30s)) << "no Xvfb";
    if (!server_.lines().empty()) setenv("DISPLAY", (":" + server_.lines().front()).c_str(), 1);
    setenv("QT_QPA_PLATFORM", "xcb", 1);
  }

  /// Clicks in a window's middle, this many pixels above its lower edge, when the window is there.
  static void click(const std::string& window, int fromBelow) {
    std::vector<std::string> place;
    const auto end = std::chrono::steady_clock::now() + 30s;
    while (valueOf("HEIGHT=", place) == 0) {
      ASSERT_LT(std::chrono::steady_clock::now(), end) << "no window \"" << window << '"';
      letTimePass(50ms);
      place = outputOf({"getwindowgeometry", "--shell", "%1"}, window);
    }
    const int x = valueOf("WIDTH=", place) / 2;
    const int y = valueOf("HEIGHT=", place) - fromBelow;
    outputOf({"windowraise", "%1", "mousemove", "--window", "%1", std::to_string(x), std::to_string(y),
              "click", "1"},
             window);
  }

 private:
  static std::vector<std::string> outputOf(const std::vector<std::string>& orders,
                                           const std::string& window) {
    // Its own way to wait for a window waits for ever.
    std::vector<std::string> command{"timeout", "10", "xdotool", "search", "--onlyvisible", "--name", window};
    command.insert(command.end(), orders.begin(), orders.end());
    ChildProcess hand(command);
    hand.wait();
    letTimePass(10ms);
    return hand.lines();
  }

  static int valueOf(const std::string& name, const std::vector<std::string>& lines) {
    for (const auto& line : lines) {
      if (line.starts_with(name)) return std::stoi(line.substr(name.size()));
    }
    return 0;
  }

  ChildProcess server_;
};

/// Its main thread has done nothing for longer than its timer would let it.
bool isFrozen(pid_t process) {
  const auto turns = [=] {
    const std::string number = std::to_string(process);
    std::ifstream status("/proc/" + number + "/task/" + number + "/status");
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("voluntary_ctxt_switches")) return line;
    }
    return std::string();
  };
  const std::string before = turns();
  letTimePass(500ms);
  return !before.empty() && turns() == before;
}

pid_t firstChildOf(pid_t process) {
  pid_t child = -1;
  for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
    std::ifstream children(task.path() / "children");
    if (children >> child) return child;
  }
  return -1;
}

// Pixels above the lower edge of their window.
constexpr int stop = 60;
constexpr int freeze = 23;
constexpr int walk = 54;

class WindowHostTest : public GuardedExamplesTest, public testing::WithParamInterface<const char*> {
 protected:
  WindowHostTest() {
    // It is refused until the belt was seen to stand.
    for (int attempt = 0; attempt < 20 && !isWalking; ++attempt) {
      Screen::click(window, walk);
      isWalking = treadmill.isSoon("running", 1s);
    }
    EXPECT_TRUE(isWalking);
  }

  const std::string window = "Treadmill";
  bool isWalking = false;
  Screen screen;
  ChildProcess host{{GetParam(), treadmill.path()}};
};

TEST_P(WindowHostTest, ItsStopButtonWorksWhileTheWindowIsFrozen) {
  Screen::click(window, freeze);
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return isFrozen(host.pid()); }, 4s));
  Screen::click("Stop button", stop);
  // The missing heartbeat would stop the belt, too, but only after 5 s.
  EXPECT_TRUE(treadmill.isSoon("stopped", 4s));
}

TEST_P(WindowHostTest, AStopButtonThatIsGoneCountsAsPressed) {
  const pid_t button = firstChildOf(host.pid());
  ASSERT_GT(button, 0);
  kill(button, SIGKILL);
  EXPECT_TRUE(treadmill.isSoon("stopped"));
}

TEST_P(WindowHostTest, AFrozenWindowStopsTheBeltByItself) {
  Screen::click(window, freeze);
  EXPECT_TRUE(treadmill.isSoon("stopped"));
}

TEST_P(WindowHostTest, ABeltWhoseHostIsKilledStops) {
  host.signal(SIGKILL);
  EXPECT_TRUE(treadmill.isSoon("stopped"));
}

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(WindowHostTest);  // where there is no Qt
INSTANTIATE_TEST_SUITE_P(EachQt, WindowHostTest, testing::ValuesIn(std::vector<const char*>{WINDOW_HOSTS}));

}  // namespace
}  // namespace tarsil
