#pragma once

#include <unistd.h>

#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/exercise/ExerciseTest.hpp"
#include "tarsil/guard/GuardedStation.hpp"
#include "tarsil/runtime/DispatchSource.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tools/tarsil/run/KeyTerminal.hpp"

namespace tarsil::cli {

/// A session on a terminal: redrawn in place four times a second, every value with its age, and keys to
/// control it. Main thread; it goes before the test, and leaves the last picture behind.
class LiveView {
 public:
  /// `input` and `output` are terminals; throws std::system_error for others.
  LiveView(ExerciseTest& test, GuardedStation& station, std::string model, int input = STDIN_FILENO,
           int output = STDOUT_FILENO);
  ~LiveView();
  LiveView(const LiveView&) = delete;
  LiveView& operator=(const LiveView&) = delete;

 private:
  enum class Style { plain, strong, faint, warning, alarm };
  struct Line {
    std::string text;
    Style style = Style::plain;
  };

  template <class Value>
  static Style styleOf(const Reading<Value>& reading);

  void draw();
  void readKeys();
  void press(char key);

  std::vector<Line> picture() const;
  Line titleLine() const;
  Line progressLine(int columns) const;
  void addLoad(std::vector<Line>& lines) const;
  Line loadLine(const char* name, const char* unit, float target, float commanded,
                const Reading<float>& reading) const;
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
  /// The station keeps its listeners for good, so it shares this.
  const std::shared_ptr<std::deque<News>> news_ = std::make_shared<std::deque<News>>();
  const int input_;
  KeyTerminal terminal_;
  std::shared_ptr<Timer> timer_;
  std::shared_ptr<DispatchSource> keys_;
};

}  // namespace tarsil::cli
