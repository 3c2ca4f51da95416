#pragma once

#include <unistd.h>

#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/runtime/DispatchSource.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tools/tarsil/run/Journal.hpp"
#include "tools/tarsil/run/KeyTerminal.hpp"
#include "tools/tarsil/run/Session.hpp"
#include "tools/tarsil/run/Station.hpp"

namespace tarsil::cli {

/// A session on a terminal: redrawn in place four times a second, every value with its age, and keys to
/// control it. Main thread; it goes before the session, and leaves the last picture behind.
class LiveView {
 public:
  /// `input` and `output` are terminals; throws std::system_error for others.
  LiveView(Session& session, const Station& station, Journal& journal, int input = STDIN_FILENO,
           int output = STDOUT_FILENO);
  ~LiveView();
  LiveView(const LiveView&) = delete;
  LiveView& operator=(const LiveView&) = delete;

 private:
  enum class Style { plain, strong, faint, warning };
  struct Line {
    std::string text;
    Style style = Style::plain;
  };

  void draw();
  void readKeys();
  void press(char key);

  std::vector<Line> picture() const;
  Line titleLine() const;
  Line progressLine(int columns) const;
  void addLoad(std::vector<Line>& lines) const;
  Line loadLine(const char* name, const char* unit, float target, float commanded, float Load::*part) const;
  Line pedalLine() const;
  Line pressureLine() const;
  Line saturationLine() const;
  void addNews(std::vector<Line>& lines) const;

  Session& session_;
  const Station& station_;
  /// The journal keeps its readers for good, so it shares this.
  const std::shared_ptr<std::deque<Entry>> news_ = std::make_shared<std::deque<Entry>>();
  const int input_;
  KeyTerminal terminal_;
  std::shared_ptr<Timer> timer_;
  std::shared_ptr<DispatchSource> keys_;
};

}  // namespace tarsil::cli
