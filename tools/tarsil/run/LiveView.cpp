#include "tools/tarsil/run/LiveView.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <utility>

#include "tarsil/guard/eventText.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;

constexpr Duration frameTime = 250ms;
constexpr std::size_t newsLines = 6;

/// "0.4 s ago", "1:12 ago".
std::string ageText(Duration age) {
  if (age < 10s) return fmt::format("{:.1f} s ago", std::chrono::duration<double>(age).count());
  return clockText(age) + " ago";
}

template <class Value>
std::string ageText(const Reading<Value>& reading) {
  return ageText(Clock::now() - reading.at) + (reading.isFresh() ? "" : "  OLD");
}

template <class Value>
bool isKnown(const Reading<Value>& reading) {
  return reading.state == Reading<Value>::State::fresh || reading.state == Reading<Value>::State::stale;
}

/// At most `columns` characters of the text; what cannot be seen is not counted.
std::string cut(const std::string& text, int columns) {
  const auto startsCharacter = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; };
  int characters = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (startsCharacter(text[i]) && characters++ == columns) return text.substr(0, i);
  }
  return text;
}

/// A device's words must not steer the terminal.
std::string harmless(std::string text) {
  std::replace_if(
      text.begin(), text.end(),
      [](char byte) { return static_cast<unsigned char>(byte) < ' ' || byte == 0x7f; }, ' ');
  return text;
}

/// What happens every second would hide the rest.
bool isNews(const EventText& told) {
  return told.kind != EventKind::traffic && told.word != "requestLoad" && told.word != "load" &&
         told.word != "power" && told.word != "rpm" && told.word != "accepted" && told.word != "saturation" &&
         told.word != "outcome" && told.word != "printed";
}

std::string bar(double fraction, int width) {
  const int full = static_cast<int>(std::lround(std::clamp(fraction, 0.0, 1.0) * width));
  std::string text;
  for (int i = 0; i < width; ++i) text += i < full ? "█" : "░";
  return text;
}

}  // namespace

template <class Value>
LiveView::Style LiveView::styleOf(const Reading<Value>& reading) {
  return reading.isFresh() ? Style::plain : Style::warning;
}

LiveView::LiveView(ExerciseTest& test, GuardedStation& station, std::string model, int input, int output)
    : test_(test), station_(station), model_(std::move(model)), input_(input), terminal_(input, output) {
  const auto since = [start = Clock::now()](const Event& event) { return event.at - start; };
  station.onEvent([news = news_, since, kind = test.protocol().device](const Event& event) {
    if (!isNews(textOf(event, kind))) return;
    news->push_back({since(event), event});
    if (news->size() > newsLines) news->pop_front();
  });
  timer_ = Timer::scheduled(frameTime, true, [this](Timer&) { draw(); });
  keys_ = DispatchSource::read(input_, DispatchQueue::main());
  keys_->setEventHandler([this] { readKeys(); });
  keys_->resume();
  draw();
}

LiveView::~LiveView() {
  timer_->invalidate();
  keys_->cancel();
  // The last picture stays, above what the shell prints next.
  std::string last;
  for (const Line& line : picture()) last += cut(line.text, terminal_.size().columns) + "\r\n";
  terminal_.setFarewell(last);
}

void LiveView::readKeys() {
  std::array<char, 64> keys;
  const ssize_t count = ::read(input_, keys.data(), keys.size());
  // The terminal is gone; the session goes on without keys.
  if (count <= 0) return keys_->cancel();
  for (ssize_t i = 0; i < count; ++i) press(keys[static_cast<std::size_t>(i)]);
  draw();
}

void LiveView::press(char key) {
  switch (key) {
    case 'h':
      return test_.hold(!test_.isHeld());
    case 'n':
      return test_.advance();
    case 'b':
      return test_.measurePressure();
    case 's':
      return test_.stop("stopped at the keyboard");
    default:
      return;
  }
}

void LiveView::draw() {
  const auto [rows, columns] = terminal_.size();
  constexpr std::array styles{"", "\x1b[1m", "\x1b[2m", "\x1b[1;33m", "\x1b[1;97;41m"};
  std::vector<Line> lines = picture();
  lines.push_back({});
  lines.push_back({" h hold   n next phase   b blood pressure   s stop   Ctrl-C stop, twice: close at once",
                   Style::faint});

  std::string frame = "\x1b[H";
  const std::size_t visible = std::min(lines.size(), static_cast<std::size_t>(rows));
  for (std::size_t i = 0; i < visible; ++i) {
    frame += styles.at(static_cast<std::size_t>(lines[i].style));
    frame += cut(lines[i].text, columns) + "\x1b[0m\x1b[K";
    if (i + 1 < visible) frame += "\r\n";
  }
  terminal_.write(frame + "\x1b[J");
}

std::vector<LiveView::Line> LiveView::picture() const {
  const Readings readings = station_.readings();
  std::vector<Line> lines{titleLine(), progressLine(terminal_.size().columns)};
  addAlarms(lines);
  lines.push_back({});
  addLoad(lines);
  if (isKnown(readings.pedalRate)) lines.push_back(pedalLine(readings.pedalRate));
  lines.push_back(pressureLine(readings.pressure));
  lines.push_back(saturationLine(readings.saturation));
  lines.push_back({});
  addNews(lines);
  return lines;
}

LiveView::Line LiveView::titleLine() const {
  return {fmt::format(" {} on {}", harmless(test_.protocol().name), model_), Style::strong};
}

LiveView::Line LiveView::progressLine(int columns) const {
  switch (test_.state()) {
    case ExerciseTest::State::checking:
      return {" connecting: every device has to answer", Style::strong};
    case ExerciseTest::State::resting:
      return {" at rest: blood pressure before the exercise", Style::strong};
    case ExerciseTest::State::levelling:
      return {" the belt goes down to level", Style::strong};
    case ExerciseTest::State::stopping:
      return {" stopping: waiting until the device stands", Style::warning};
    case ExerciseTest::State::closing:
      return {" closing the ports", Style::strong};
    case ExerciseTest::State::over:
      return {" over", Style::strong};
    case ExerciseTest::State::exercising:
      break;
  }
  const Phase& phase = test_.protocol().phases[test_.phaseIndex()];
  const std::string name = test_.protocol().phaseName(test_.phaseIndex());
  const double passed = 1 - std::chrono::duration<double>(test_.phaseLeft()) / phase.duration;
  const std::string held = test_.isHeld() ? "  HELD " + clockText(test_.heldFor()) : "";
  const std::string left = fmt::format("{} left, {} in all{}", clockText(test_.phaseLeft()),
                                       clockText(test_.exerciseLeft()), held);
  const int room = std::clamp(columns - static_cast<int>(name.size() + left.size()) - 6, 0, 30);
  return {fmt::format(" {}  {}  {}", name, bar(passed, room), left),
          test_.isHeld() ? Style::warning : Style::strong};
}

void LiveView::addAlarms(std::vector<Line>& lines) const {
  for (const AlarmKind kind : station_.alarms()) {
    if (priorityOf(kind) == Priority::low) continue;
    lines.push_back({fmt::format(" ALARM: {}", shortText(kind)), Style::alarm});
  }
}

void LiveView::addLoad(std::vector<Line>& lines) const {
  const Load target = test_.state() == ExerciseTest::State::exercising ? test_.target() : Load{};
  const Load commanded = station_.commanded();
  const Readings readings = station_.readings();
  if (!isTreadmill())
    return lines.push_back(loadLine("power", "W", target.power, commanded.power, readings.power));
  lines.push_back(loadLine("speed", "km/h", target.speed, commanded.speed, readings.speed));
  lines.push_back(loadLine("grade", "%", target.grade, commanded.grade, readings.grade));
}

LiveView::Line LiveView::loadLine(const char* name, const char* unit, float target, float commanded,
                                  const Reading<float>& reading) const {
  const std::string asked = fmt::format(" {:<9} target {:5.1f}   asked {:5.1f}   ", name, target, commanded);
  if (!station_.reportsLoad()) return {fmt::format("{}{} (not reported)", asked, unit)};
  if (!isKnown(reading)) return {fmt::format("{}reported     – {}", asked, unit), Style::faint};
  return {fmt::format("{}reported {:5.1f} {:<4}  {}", asked, reading.value, unit, ageText(reading)),
          styleOf(reading)};
}

LiveView::Line LiveView::pedalLine(const Reading<float>& rate) {
  return {fmt::format(" {:<9} {:.0f} rpm  {}", "pedals", rate.value, ageText(rate)), styleOf(rate)};
}

LiveView::Line LiveView::pressureLine(const Reading<Pressure>& reading) const {
  const char* const cuff = station_.isMeasuringPressure() ? "  cuff inflating" : "";
  if (!isKnown(reading)) return {fmt::format(" {:<9} – mmHg{}", "pressure", cuff), Style::faint};
  return {fmt::format(" {:<9} {:.0f}/{:.0f} mmHg  {}{}", "pressure", reading.value.systolic,
                      reading.value.diastolic, ageText(reading), cuff),
          styleOf(reading)};
}

LiveView::Line LiveView::saturationLine(const Reading<float>& saturation) {
  if (!isKnown(saturation)) return {fmt::format(" {:<9} – %", "SpO2"), Style::faint};
  return {fmt::format(" {:<9} {:.0f} %  {}", "SpO2", saturation.value, ageText(saturation)),
          styleOf(saturation)};
}

void LiveView::addNews(std::vector<Line>& lines) const {
  for (const auto& [at, event] : *news_) {
    const EventText told = textOf(event, test_.protocol().device);
    const bool isFailure = told.kind == EventKind::failure;
    lines.push_back(
        {fmt::format(" {:>6}  {:<9} {}", clockText(at), roleOf(event.source), harmless(told.text)),
         isFailure ? Style::warning : Style::plain});
  }
}

}  // namespace tarsil::cli
