#include "tools/tarsil/run/LiveView.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <utility>

#include "tarsil/guard/eventText.hpp"
#include "tools/tarsil/run/largeText.hpp"
#include "tools/tarsil/run/sessionWords.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;

constexpr Duration frameTime = 250ms;
/// More than any terminal has lines.
constexpr std::size_t newsLines = 200;
/// What is shown large, and target, asked and reported side by side, need so many columns.
constexpr int wideColumns = 72;
/// A word that marks a moment is no story.
constexpr std::size_t longestWord = 60;
constexpr char escape = '\x1b';
constexpr char backspace = '\x7f';

/// "0.4 s ago", "1:12 ago".
std::string ageText(Duration age) {
  if (age < 10s) return fmt::format("{:.1f} s ago", std::chrono::duration<double>(age).count());
  return clockText(age) + " ago";
}

template <class Value>
std::string ageText(const Reading<Value>& reading) {
  return ageText(Clock::now() - reading.at) + (reading.isFresh() ? "" : "  OLD");
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

LiveView::LiveView(ExerciseTest& test, GuardedStation& station, std::string model, std::string page,
                   int input, int output)
    : test_(test),
      station_(station),
      model_(std::move(model)),
      page_(std::move(page)),
      input_(input),
      terminal_(input, output) {
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
  const auto [rows, columns] = terminal_.size();
  std::string last;
  for (const Line& line : picture(columns, rows - 2))
    last += cut(display_.shown(line.text), columns) + "\r\n";
  terminal_.setFarewell(last);
}

void LiveView::readKeys() {
  std::array<char, 64> keys;
  const ssize_t count = ::read(input_, keys.data(), keys.size());
  // The terminal is gone; the session goes on without keys.
  if (count <= 0) return keys_->cancel();
  for (ssize_t i = 0; i < count; ++i) {
    const char key = keys[static_cast<std::size_t>(i)];
    // An arrow, say: no letter of it means anything.
    if (key == escape && i + 1 < count) break;
    word_ ? pressInWord(key) : press(key);
  }
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
    case 'm':
      word_ = "";
      return;
    case 's':
      return test_.stop("stopped at the keyboard");
    default:
      return;
  }
}

void LiveView::pressInWord(char key) {
  if (key == escape) return word_.reset();
  if (key == '\r' || key == '\n') {
    if (!word_->empty()) test_.mark(*word_);
    return word_.reset();
  }
  if (key == backspace || key == '\b') {
    // A character may have several bytes.
    while (!word_->empty() && (static_cast<unsigned char>(word_->back()) & 0xC0) == 0x80) word_->pop_back();
    if (!word_->empty()) word_->pop_back();
    return;
  }
  if (static_cast<unsigned char>(key) >= ' ' && word_->size() < longestWord) *word_ += key;
}

void LiveView::draw() {
  const auto [rows, columns] = terminal_.size();
  const auto keys = keyLines(columns);
  const int keyRows = static_cast<int>(keys.size());
  std::string frame = hasNewAlarm() ? "\a\x1b[H" : "\x1b[H";
  int drawn = 0;
  for (const Line& line : picture(columns, rows - keyRows)) {
    frame += codeOf(line.style) + cut(display_.shown(line.text), columns) + "\x1b[0m\x1b[K\r\n";
    ++drawn;
  }
  for (; drawn < rows - keyRows; ++drawn) frame += "\x1b[K\r\n";
  for (std::size_t i = 0; i < keys.size(); ++i) {
    frame += codeOf(word_ ? Style::strong : Style::faint) + cut(display_.shown(keys[i]), columns) +
             "\x1b[0m\x1b[K";
    if (i + 1 < keys.size()) frame += "\r\n";
  }
  terminal_.write(frame + "\x1b[J");
}

const char* LiveView::codeOf(Style style) const {
  switch (style) {
    case Style::plain:
      return "";
    case Style::strong:
      return "\x1b[1m";
    case Style::faint:
      return "\x1b[2m";
    case Style::warning:
      return display_.hasColours ? "\x1b[1;33m" : "\x1b[1m";
    case Style::alarm:
      return display_.hasColours ? "\x1b[1;97;41m" : "\x1b[1;7m";
  }
  return "";
}

bool LiveView::hasNewAlarm() {
  const auto now = station_.alarms();
  const bool isNew = std::any_of(now.begin(), now.end(), [this](AlarmKind kind) {
    return priorityOf(kind) != Priority::low &&
           std::find(alarms_.begin(), alarms_.end(), kind) == alarms_.end();
  });
  alarms_ = now;
  return isNew;
}

std::vector<std::string> LiveView::keyLines(int columns) const {
  if (word_) return {" mark: " + harmless(*word_) + "_", " Enter marks this moment, Esc does not"};
  std::vector<std::string> lines{""};
  for (const std::string key :
       {" h hold ", " n next ", " b pressure ", " m mark ", " s stop ", " ^C stop; twice: leave "}) {
    const bool fits = lines.back().size() + key.size() <= static_cast<std::size_t>(columns);
    if (!fits && !lines.back().empty()) lines.emplace_back();
    lines.back() += key;
  }
  return lines;
}

std::vector<LiveView::Line> LiveView::picture(int columns, int room) const {
  const Readings readings = station_.readings();
  std::vector<Line> lines{titleLine(), progressLine(columns)};
  if (test_.state() == ExerciseTest::State::exercising) lines.push_back(nextLine(columns));
  addAlarms(lines);
  lines.push_back({.text = "", .rank = Rank::gap});
  if (columns >= wideColumns) addLarge(lines, columns);
  addLoad(lines, columns);
  if (isKnown(readings.pedalRate)) lines.push_back(pedalLine(readings.pedalRate));
  lines.push_back(pressureLine(readings.pressure));
  lines.push_back(saturationLine(readings.saturation));
  // Half a link leads nowhere.
  const std::string page = fmt::format(" {:<9} {}", "page", page_);
  if (!page_.empty() && page.size() <= static_cast<std::size_t>(columns))
    lines.push_back({page, Style::plain, Rank::page});
  lines.push_back({.text = "", .rank = Rank::gap});
  // The list has the height that is left: at least a few lines of it, or nothing large.
  addNews(lines);
  constexpr int enoughNews = 4;
  const auto count = [&lines](Rank rank) {
    return static_cast<int>(
        std::count_if(lines.begin(), lines.end(), [&](const Line& line) { return line.rank == rank; }));
  };
  while (static_cast<int>(lines.size()) > std::max(room, 1)) {
    Rank least = Rank::alarm;
    for (const Line& line : lines) least = std::min(least, line.rank);
    if (count(Rank::news) > enoughNews) least = Rank::news;
    lines.erase(
        std::find_if(lines.begin(), lines.end(), [&](const Line& line) { return line.rank == least; }));
    // Half of something large says nothing.
    if (least == Rank::large) std::erase_if(lines, [](const Line& line) { return line.rank == Rank::large; });
  }
  return lines;
}

LiveView::Line LiveView::titleLine() const {
  return {fmt::format(" {} on {}", harmless(test_.protocol().name), model_), Style::strong, Rank::title};
}

LiveView::Line LiveView::nextLine(int columns) const {
  return {fmt::format(" {} passed, then {}", clockText(test_.exerciseTime()),
                      nextText(test_, columns >= wideColumns)),
          Style::plain, Rank::next};
}

void LiveView::addLarge(std::vector<Line>& lines, int columns) const {
  if (test_.state() != ExerciseTest::State::exercising) return;
  const Readings readings = station_.readings();
  const auto number = [](const Reading<float>& reading, int digits) {
    return isKnown(reading) ? fmt::format("{:.{}f}", reading.value, digits) : std::string("-");
  };
  std::vector<std::pair<std::string, const char*>> parts;
  if (isTreadmill()) {
    parts = {{number(readings.speed, 1), "km/h"}, {number(readings.grade, 1), "%"}};
  } else {
    parts = {{number(readings.power, 0), "W"}};
  }
  parts.emplace_back(clockText(test_.phaseLeft()), "left");
  if (isKnown(readings.saturation) && columns >= 80)
    parts.emplace_back(number(readings.saturation, 0), "% SpO2");

  const Reading<float>& load = isTreadmill() ? readings.speed : readings.power;
  for (std::size_t row = 0; row < 3; ++row) {
    std::string text = " ";
    for (const auto& [value, unit] : parts) {
      text += largeText(value)[row];
      text += fmt::format("{:<{}}", row == 2 ? unit : "", std::string_view(unit).size() + 3);
    }
    lines.push_back({text, isKnown(load) ? styleOf(load) : Style::strong, Rank::large});
    if (lines.back().style == Style::plain) lines.back().style = Style::strong;
  }
  lines.push_back({.text = "", .rank = Rank::large});
}

LiveView::Line LiveView::progressLine(int columns) const {
  if (const std::string text = stateText(test_.state()); !text.empty()) {
    const bool isStopping = test_.state() == ExerciseTest::State::stopping;
    return {" " + text, isStopping ? Style::warning : Style::strong, Rank::progress};
  }
  const Phase& phase = test_.protocol().phases[test_.phaseIndex()];
  const std::string name = test_.protocol().phaseName(test_.phaseIndex());
  const double passed = 1 - std::chrono::duration<double>(test_.phaseLeft()) / phase.duration;
  const std::string held = test_.isHeld() ? "  HELD " + clockText(test_.heldFor()) : "";
  // There is not room for everything on a small screen, and a stage that is held has no end.
  const std::string inAll = test_.isHeld() && columns < wideColumns
                                ? ""
                                : fmt::format(", {} in all", clockText(test_.exerciseLeft()));
  const std::string left = fmt::format("{} left{}{}", clockText(test_.phaseLeft()), inAll, held);
  const int room = std::clamp(columns - static_cast<int>(name.size() + left.size()) - 6, 0, 30);
  return {fmt::format(" {}  {}  {}", name, bar(passed, room), left),
          test_.isHeld() ? Style::warning : Style::strong, Rank::progress};
}

void LiveView::addAlarms(std::vector<Line>& lines) const {
  for (const AlarmKind kind : station_.alarms()) {
    if (priorityOf(kind) == Priority::low) {
      lines.push_back({fmt::format(" note: {}", shortText(kind)), Style::warning, Rank::vitals});
    } else {
      lines.push_back({fmt::format(" ALARM: {}", shortText(kind)), Style::alarm, Rank::alarm});
    }
  }
}

void LiveView::addLoad(std::vector<Line>& lines, int columns) const {
  const Load target = test_.state() == ExerciseTest::State::exercising ? test_.target() : Load{};
  const Load commanded = station_.commanded();
  const Readings readings = station_.readings();
  if (!isTreadmill())
    return lines.push_back(loadLine("power", "W", target.power, commanded.power, readings.power, columns));
  lines.push_back(loadLine("speed", "km/h", target.speed, commanded.speed, readings.speed, columns));
  lines.push_back(loadLine("grade", "%", target.grade, commanded.grade, readings.grade, columns));
}

LiveView::Line LiveView::loadLine(const char* name, const char* unit, float target, float commanded,
                                  const Reading<float>& reading, int columns) const {
  if (columns < wideColumns) {
    const std::string wanted = fmt::format("of {:.1f} {}", target, unit);
    if (!station_.reportsLoad())
      return {fmt::format(" {:<6}   – {} (not reported)", name, wanted), Style::plain, Rank::load};
    if (!isKnown(reading)) return {fmt::format(" {:<6}   – {}", name, wanted), Style::faint, Rank::load};
    return {fmt::format(" {:<6}{:5.1f} {:<12} {}", name, reading.value, wanted, ageText(reading)),
            styleOf(reading), Rank::load};
  }
  const std::string asked = fmt::format(" {:<9} target {:5.1f}   asked {:5.1f}   ", name, target, commanded);
  if (!station_.reportsLoad())
    return {fmt::format("{}{} (not reported)", asked, unit), Style::plain, Rank::load};
  if (!isKnown(reading)) return {fmt::format("{}reported     – {}", asked, unit), Style::faint, Rank::load};
  return {fmt::format("{}reported {:5.1f} {:<4}  {}", asked, reading.value, unit, ageText(reading)),
          styleOf(reading), Rank::load};
}

LiveView::Line LiveView::pedalLine(const Reading<float>& rate) {
  return {fmt::format(" {:<9} {:.0f} rpm  {}", "pedals", rate.value, ageText(rate)), styleOf(rate),
          Rank::pedals};
}

LiveView::Line LiveView::pressureLine(const Reading<Pressure>& reading) const {
  const char* const cuff = station_.isMeasuringPressure() ? "  cuff inflating" : "";
  if (!isKnown(reading))
    return {fmt::format(" {:<9} – mmHg{}", "pressure", cuff), Style::faint, Rank::vitals};
  return {fmt::format(" {:<9} {:.0f}/{:.0f} mmHg  {}{}", "pressure", reading.value.systolic,
                      reading.value.diastolic, ageText(reading), cuff),
          styleOf(reading), Rank::vitals};
}

LiveView::Line LiveView::saturationLine(const Reading<float>& saturation) {
  if (!isKnown(saturation)) return {fmt::format(" {:<9} – %", "SpO2"), Style::faint, Rank::vitals};
  return {fmt::format(" {:<9} {:.0f} %  {}", "SpO2", saturation.value, ageText(saturation)),
          styleOf(saturation), Rank::vitals};
}

void LiveView::addNews(std::vector<Line>& lines) const {
  for (const auto& [at, event] : *news_) {
    const EventText told = textOf(event, test_.protocol().device);
    const bool isFailure = told.kind == EventKind::failure;
    lines.push_back(
        {fmt::format(" {:>6}  {:<9} {}", clockText(at), roleOf(event.source), harmless(told.text)),
         isFailure ? Style::warning : Style::plain, Rank::news});
  }
}

}  // namespace tarsil::cli
