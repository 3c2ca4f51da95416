#include "tools/tarsil/run/LiveView.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <regex>

#include "simulators/lines/PseudoTerminal.hpp"
#include "tarsil/guard/eventText.hpp"
#include "tests/cli-report/ScratchFolder.hpp"
#include "tests/cli-report/SimulatedSession.hpp"
#include "tools/tarsil/run/largeText.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;

constexpr const char* walk =
    "name Walk\ndevice treadmill\nwarm-up 0:10 1.6 0\nstage 1:30 2.7 10\nrecovery 0:10 1.6 0\n";

/// The far end of a terminal, as a person sees it.
class Screen {
 public:
  Screen() : descriptor(open(terminal_.path().c_str(), O_RDWR | O_NOCTTY)) {
    const winsize size{.ws_row = 24, .ws_col = 100, .ws_xpixel = 0, .ws_ypixel = 0};
    ioctl(descriptor, TIOCSWINSZ, &size);
  }
  ~Screen() { close(descriptor); }
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  /// Everything that was written so far. What is written arrives a little later, so a mark is sent after it.
  std::string all() {
    const std::string mark = "\x1b[" + std::to_string(++marks_) + "z";
    EXPECT_EQ(write(descriptor, mark.data(), mark.size()), static_cast<ssize_t>(mark.size()));
    while (!written_.ends_with(mark)) {
      pollfd readable{.fd = terminal_.descriptor(), .events = POLLIN, .revents = 0};
      if (poll(&readable, 1, 10'000) != 1) {
        ADD_FAILURE() << "the terminal is silent";
        return written_;
      }
      const Bytes bytes = terminal_.read();
      written_.append(bytes.begin(), bytes.end());
    }
    written_.resize(written_.size() - mark.size());
    return written_;
  }

  /// The lines of the last picture, without colours.
  std::vector<std::string> lines() {
    const std::string text = all();
    const std::size_t begin = text.rfind("\x1b[H");
    std::string picture = text.substr(begin, text.find("\x1b[J", begin) - begin);
    picture = std::regex_replace(picture, std::regex("\x1b\\[[0-9;?]*[A-Za-z]|\r"), "");
    return linesOf(picture);
  }

  std::string line(const std::string& name) {
    for (const std::string& line : lines()) {
      if (line.starts_with(" " + name)) return line;
    }
    return "no line " + name;
  }

  void press(std::string_view keys) { terminal_.write(Bytes(keys.begin(), keys.end())); }

  termios modes() const {
    termios modes{};
    tcgetattr(descriptor, &modes);
    return modes;
  }

 private:
  simulators::PseudoTerminal terminal_;
  std::string written_;
  int marks_ = 0;

 public:
  const int descriptor;
};

class LiveViewTest : public testing::Test {
 protected:
  LiveViewTest() {
    setenv("LC_ALL", "C.UTF-8", 1);
    unsetenv("NO_COLOR");
    simulated_.begin();
    look();
  }

  /// Looks at the session anew, as the environment is now.
  void look(const std::string& page = "") {
    view_.reset();
    view_.emplace(*simulated_.test, *simulated_.station, simulated_.model(), page, screen_.descriptor,
                  screen_.descriptor);
  }

  void resize(unsigned short rows, unsigned short columns) const {
    const winsize size{.ws_row = rows, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
    ioctl(screen_.descriptor, TIOCSWINSZ, &size);
  }

  void reachTheStage() {
    while (test().state() != ExerciseTest::State::exercising || test().phaseIndex() == 0) advance(250ms);
  }

  void advance(Duration duration) {
    for (Duration passed{}; passed < duration; passed += 250ms) {
      simulated_.time.advance(250ms);
      screen_.all();
    }
  }

  ExerciseTest& test() { return *simulated_.test; }

  Screen screen_;
  SimulatedSession simulated_{"LodeTreadmill", walk};
  std::optional<LiveView> view_;
};

TEST_F(LiveViewTest, ShowsEveryValueWithItsAge) {
  EXPECT_THAT(screen_.lines().at(0), MatchesRegex(" Walk on LodeTreadmill"));
  EXPECT_THAT(screen_.lines().at(1), HasSubstr("connecting"));
  while (test().state() == ExerciseTest::State::checking) advance(250ms);
  advance(12s);
  EXPECT_THAT(screen_.lines().at(1), MatchesRegex(" stage 1 of 1  (█)*(░)+  1:2[0-9] left, 1:3[0-9] in all"));
  EXPECT_THAT(
      screen_.line("speed"),
      MatchesRegex(
          " speed +target   2\\.7   asked   2\\.[67]   reported   2\\.[67] km/h +[01]\\.[0-9] s ago"));
  EXPECT_THAT(
      screen_.line("grade"),
      MatchesRegex(" grade +target  10\\.0   asked  +[0-9.]+   reported +[0-9.]+ % +[01]\\.[0-9] s ago"));
  EXPECT_THAT(screen_.line("SpO2"), MatchesRegex(" SpO2 +[0-9]+ %  [0-9.]+ s ago"));
  EXPECT_THAT(screen_.line("pressure"), HasSubstr("– mmHg"));
  advance(75s);
  EXPECT_THAT(screen_.line("pressure"), MatchesRegex(" pressure +1[0-9][0-9]/[0-9]+ mmHg  .* ago"));
}

TEST_F(LiveViewTest, MarksALoadThatStoppedArriving) {
  while (test().state() == ExerciseTest::State::checking) advance(250ms);
  advance(5s);
  EXPECT_THAT(screen_.line("speed"), Not(HasSubstr("OLD")));
  // The cable is pulled; the session goes on to its end.
  simulated_.simulated.reset();
  advance(5s);
  EXPECT_THAT(screen_.line("speed"), MatchesRegex(".* [4-6]\\.[0-9] s ago  OLD"));
  EXPECT_THAT(screen_.lines(), testing::Contains(HasSubstr("the port has vanished")));
}

TEST_F(LiveViewTest, KeysControlTheSession) {
  while (test().state() == ExerciseTest::State::checking) advance(250ms);
  screen_.press("h");
  advance(1s);
  EXPECT_TRUE(test().isHeld());
  EXPECT_THAT(screen_.lines().at(1), HasSubstr("HELD"));
  screen_.press("h");
  advance(1s);
  EXPECT_FALSE(test().isHeld());
  screen_.press("n");
  advance(1s);
  EXPECT_EQ(test().phaseIndex(), 1U);
  screen_.press("xb");
  advance(1s);
  EXPECT_THAT(screen_.lines(), testing::Contains(HasSubstr("start blood pressure")));
  screen_.press("s");
  advance(250ms);
  EXPECT_EQ(test().state(), ExerciseTest::State::stopping);
  EXPECT_THAT(screen_.lines().at(1), HasSubstr("stopping"));
  EXPECT_TRUE(simulated_.finish());
  EXPECT_EQ(test().outcome(), ExerciseTest::Outcome::stopped);
}

TEST_F(LiveViewTest, PutsTheTerminalBackAndLeavesTheLastPicture) {
  const termios during = screen_.modes();
  EXPECT_EQ(during.c_lflag & (ICANON | ECHO), 0U);
  EXPECT_EQ(during.c_cc[VSUSP], _POSIX_VDISABLE);
  EXPECT_EQ(during.c_cc[VQUIT], _POSIX_VDISABLE);
  EXPECT_THAT(screen_.all(), testing::StartsWith("\x1b[?1049h\x1b[?25l"));
  view_.reset();
  const std::string text = screen_.all();
  EXPECT_THAT(text.substr(text.rfind("\x1b[?1049l")), HasSubstr("Walk on LodeTreadmill"));
  EXPECT_GT(text.rfind("\x1b[?25h"), text.rfind("\x1b[?25l"));
}

TEST_F(LiveViewTest, ShowsWhatMattersLarge) {
  resize(24, 80);
  reachTheStage();
  advance(30s);
  const auto lines = screen_.lines();
  EXPECT_THAT(lines, SizeIs(24));
  EXPECT_THAT(lines.at(2), MatchesRegex(" 0:[34][0-9] passed, then recovery: 1\\.60 km/h, 0\\.0 %"));
  for (std::size_t row = 0; row < 3; ++row) {
    const auto has = [row](const std::string& text) { return HasSubstr(largeText(text)[row]); };
    EXPECT_THAT(lines.at(4 + row), AllOf(has("2.7"), has("10.0"), has(clockText(test().phaseLeft()))));
  }
  EXPECT_THAT(lines.at(6), MatchesRegex(" .* km/h .* % .* left .* % SpO2 *"));
  EXPECT_THAT(lines.back(), MatchesRegex(" h hold  n next  b pressure  m mark  s stop  .*"));
}

TEST_F(LiveViewTest, LeavesOutWhatMattersLeastInASmallTerminalAndNeverAKey) {
  reachTheStage();
  for (const auto& [rows, columns] : {std::pair<unsigned short, unsigned short>{10, 40}, {8, 30}, {5, 30}}) {
    resize(rows, columns);
    advance(1s);
    const auto lines = screen_.lines();
    EXPECT_THAT(lines, SizeIs(rows));
    std::string all;
    for (const std::string& line : lines) all += line + "\n";
    for (const char* key : {"h hold", "n next", "b pressure", "m mark", "s stop", "^C stop"})
      EXPECT_THAT(all, HasSubstr(key)) << rows;
    EXPECT_THAT(all, HasSubstr(" stage 1 of 1")) << rows;
  }
  resize(10, 40);
  advance(1s);
  EXPECT_THAT(screen_.line("speed"), MatchesRegex(" speed +2\\.[67] of 2\\.7 km/h +[01]\\.[0-9] s ago"));
  EXPECT_THAT(screen_.line("grade"), MatchesRegex(" grade +[0-9.]+ of 10\\.0 % +[01]\\.[0-9] s ago"));
  EXPECT_THAT(screen_.line("SpO2"), HasSubstr("%"));
  EXPECT_THAT(screen_.line("pressure"), HasSubstr("mmHg"));
  screen_.press("h");
  advance(2s);
  EXPECT_THAT(screen_.lines().at(1),
              MatchesRegex(" stage 1 of 1  (█|░)*  [01]:[0-9][0-9] left  HELD 0:0[12]"));
}

TEST_F(LiveViewTest, RingsOnceForAnAlarmAndShowsItInRed) {
  reachTheStage();
  EXPECT_THAT(screen_.all(), Not(HasSubstr("\a")));
  simulated_.simulated.reset();
  advance(12s);
  EXPECT_THAT(screen_.all(), HasSubstr("\x1b[1;97;41m ALARM: the exercise device's port has vanished"));
  const auto rings = [this] {
    const std::string text = screen_.all();
    return std::count(text.begin(), text.end(), '\a');
  };
  const auto before = rings();
  EXPECT_GE(before, 1);
  // However often it is drawn.
  advance(1s);
  EXPECT_THAT(screen_.lines(), testing::Contains(HasSubstr("ALARM: ")));
  EXPECT_EQ(rings(), before);
}

TEST_F(LiveViewTest, MarksAMomentWithAWord) {
  reachTheStage();
  screen_.press("m");
  advance(250ms);
  screen_.press("dizzyx");
  screen_.press("\x7f");
  advance(250ms);
  EXPECT_THAT(screen_.lines(), testing::Contains(" mark: dizzy_"));
  screen_.press("\r");
  advance(250ms);
  EXPECT_THAT(screen_.lines(), testing::Contains(HasSubstr("  session   dizzy")));
  // The letters were no keys, and an escape takes everything back.
  EXPECT_EQ(test().state(), ExerciseTest::State::exercising);
  screen_.press("m");
  advance(250ms);
  screen_.press("stop\x1b");
  advance(250ms);
  EXPECT_THAT(screen_.lines(), Not(testing::Contains(HasSubstr("stop_"))));
  EXPECT_EQ(test().state(), ExerciseTest::State::exercising);
}

TEST_F(LiveViewTest, ShowsTheLinkOfThePageWhereThereIsRoomForIt) {
  const std::string link = "http://127.0.0.1:4321/0123456789abcdef0123456789abcdef/";
  look(link);
  resize(24, 80);
  reachTheStage();
  EXPECT_THAT(screen_.lines(), testing::Contains(" page      " + link));
  resize(10, 40);
  advance(1s);
  EXPECT_THAT(screen_.lines(), Not(testing::Contains(HasSubstr("http"))));
}

TEST_F(LiveViewTest, TakesNoLetterOfAnArrowForAKey) {
  reachTheStage();
  screen_.press("\x1b[s\x1b[n");
  advance(250ms);
  EXPECT_EQ(test().state(), ExerciseTest::State::exercising);
  EXPECT_EQ(test().phaseIndex(), 1U);
}

TEST_F(LiveViewTest, DoesWithoutColoursAndWithoutUtf8) {
  setenv("LC_ALL", "C", 1);
  setenv("NO_COLOR", "1", 1);
  look();
  reachTheStage();
  simulated_.simulated.reset();
  advance(12s);
  const std::string text = screen_.all().substr(screen_.all().rfind("\x1b[?1049h"));
  EXPECT_TRUE(
      std::all_of(text.begin(), text.end(), [](char byte) { return static_cast<signed char>(byte) >= 0; }));
  EXPECT_THAT(text, HasSubstr("\x1b[1;7m ALARM: "));
  EXPECT_FALSE(std::regex_search(text, std::regex("\x1b\\[[0-9;]*[34][0-9]m")));
  EXPECT_THAT(text, HasSubstr("stage 1 of 1  ...."));
}

TEST(KeyTerminalTest, PutsTheTerminalBackWhenTheProcessDies) {
  Screen screen;
  termios before = screen.modes();
  before.c_lflag |= ICANON | ECHO;
  tcsetattr(screen.descriptor, TCSANOW, &before);
  const pid_t child = fork();
  if (child == 0) {
    const KeyTerminal terminal(screen.descriptor, screen.descriptor);
    std::abort();
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT);
  EXPECT_EQ(screen.modes().c_lflag & (ICANON | ECHO), static_cast<tcflag_t>(ICANON | ECHO));
  EXPECT_THAT(screen.all(), testing::EndsWith("\x1b[?25h\x1b[?1049l"));
}

TEST(KeyTerminalTest, RefusesWhatIsNoTerminal) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  EXPECT_THROW(KeyTerminal(ends[0], ends[1]), std::system_error);
}

}  // namespace
}  // namespace tarsil::cli
