#pragma once

#include <unistd.h>

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/exercise/ExerciseTest.hpp"
#include "tarsil/guard/GuardedStation.hpp"
#include "tarsil/runtime/DispatchSource.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tools/tarsil/run/Display.hpp"
#include "tools/tarsil/run/KeyTerminal.hpp"

namespace tarsil::cli {

/// A session on a terminal: redrawn in place four times a second, every value with its age, and keys to
/// control it. What matters least is left out where the terminal is small; the keys always stay. An alarm
/// rings the terminal's bell when it comes. Main thread; it goes before the test, and leaves the last picture
/// behind.
class LiveView {
 public:
  /// `page` is the link of the live page, empty without one. `input` and `output` are terminals; throws
  /// std::system_error for others.
  LiveView(ExerciseTest& test, GuardedStation& station, std::string model, std::string page,
           int input = STDIN_FILENO, int output = STDOUT_FILENO);
  ~LiveView();
  LiveView(const LiveView&) = delete;
  LiveView& operator=(const LiveView&) = delete;

 private:
  enum class Style { plain, strong, faint, warning, alarm };
  /// What goes first where there is no room for everything.
  enum class Rank { gap, large, news, page, title, next, pedals, vitals, load, progress, alarm };
  struct Line {
    std::string text;
    Style style = Style::plain;
    Rank rank = Rank::alarm;
  };

  template <class Value>
  static Style styleOf(const Reading<Value>& reading);

  void draw();
  void readKeys();
  void press(char key);
  /// A key while the word of a mark is being typed.
  void pressInWord(char key);

  /// At most `room` lines.
  std::vector<Line> picture(int columns, int room) const;
  /// As many lines as it takes: no key is ever cut.
  std::vector<std::string> keyLines(int columns) const;
  const char* codeOf(Style style) const;
  bool hasNewAlarm();

  Line titleLine() const;
  Line progressLine(int columns) const;
  Line nextLine(int columns) const;
  void addLarge(std::vector<Line>& lines, int columns) const;
  void addLoad(std::vector<Line>& lines, int columns) const;
  Line loadLine(const char* name, const char* unit, float target, float commanded,
                const Reading<float>& reading, int columns) const;
  static Line pedalLine(const Reading<float>& rate);
  Line pressureLine(const Reading<Pressure>& reading) const;
  static Line saturationLine(const Reading<float>& saturation);
  void addAlarms(std::vector<Line>& lines) const;
  void addNews(std::vector<Line>& lines) const;
  bool isTreadmill() const { return test_.protocol().device == StressDeviceType::Treadmill; }

  /// What is new, and when it came.
  struct News {
    Duration at{};
    Event event;
  };

  ExerciseTest& test_;
  GuardedStation& station_;
  const std::string model_;
  const std::string page_;
  /// The station keeps its listeners for good, so it shares this.
  const std::shared_ptr<std::deque<News>> news_ = std::make_shared<std::deque<News>>();
  const Display display_ = Display::ofEnvironment();
  /// Those that have rung.
  std::vector<AlarmKind> alarms_;
  /// Of a mark, while it is being typed.
  std::optional<std::string> word_;
  const int input_;
  KeyTerminal terminal_;
  std::shared_ptr<Timer> timer_;
  std::shared_ptr<DispatchSource> keys_;
};

}  // namespace tarsil::cli
