#include "tools/tarsil/run/LiveView.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>

#include "tools/tarsil/run/clockText.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;

constexpr Duration frameTime = 250ms;
constexpr std::size_t newsLines = 6;
constexpr Duration oldLoad = 3s;

/// "0.4 s ago", "1:12 ago".
std::string ageText(Duration age) {
  if (age < 10s) return fmt::format("{:.1f} s ago", std::chrono::duration<double>(age).count());
  return clockText(age) + " ago";
}

const char* oldMark(bool isOld) {
  return isOld ? "  OLD" : "";
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

std::string bar(double fraction, int width) {
  const int full = static_cast<int>(std::lround(std::clamp(fraction, 0.0, 1.0) * width));
  std::string text;
  for (int i = 0; i < width; ++i) text += i < full ? "█" : "░";
  return text;
}

}  // namespace

LiveView::LiveView(Session& session, const Station& station, Journal& journal, int input, int output)
    : session_(session), station_(station), input_(input), terminal_(input, output) {
  journal.addReader([news = news_](const Entry& entry) {
    // What happens every second would hide the rest.
    if (entry.what == "requestLoad" || entry.what == "load" || entry.what == "power" || entry.what == "rpm" ||
        entry.what == "accepted" || entry.what == "saturation") {
      return;
    }
    news->push_back(entry);
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
      return session_.hold(!session_.isHeld());
    case 'n':
      return session_.advance();
    case 'b':
      return session_.measurePressure();
    case 's':
      return session_.stop(interrupted, "stopped at the keyboard");
    default:
      return;
  }
}

void LiveView::draw() {
  const auto [rows, columns] = terminal_.size();
  constexpr std::array styles{"", "\x1b[1m", "\x1b[2m", "\x1b[1;33m"};
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
  std::vector<Line> lines{titleLine(), progressLine(terminal_.size().columns), {}};
  addLoad(lines);
  if (station_.pedalRate()) lines.push_back(pedalLine());
  lines.push_back(pressureLine());
  lines.push_back(saturationLine());
  lines.push_back({});
  addNews(lines);
  return lines;
}

LiveView::Line LiveView::titleLine() const {
  return {fmt::format(" {} on {}", harmless(session_.protocol().name), station_.traits().model),
          Style::strong};
}

LiveView::Line LiveView::progressLine(int columns) const {
  switch (session_.state()) {
    case Session::State::connecting:
      return {" connecting: every device has to answer", Style::strong};
    case Session::State::stopping:
      return {" stopping: waiting until the device stands", Style::warning};
    case Session::State::closing:
      return {" closing the ports", Style::strong};
    case Session::State::over:
      return {" over", Style::strong};
    case Session::State::exercising:
      break;
  }
  const Phase& phase = session_.protocol().phases[session_.phaseIndex()];
  const std::string name = session_.protocol().phaseName(session_.phaseIndex());
  const double passed = 1 - std::chrono::duration<double>(session_.phaseLeft()) / phase.duration;
  const std::string left = fmt::format("{} left, {} in all{}", clockText(session_.phaseLeft()),
                                       clockText(session_.exerciseLeft()), session_.isHeld() ? "  HELD" : "");
  const int room = std::clamp(columns - static_cast<int>(name.size() + left.size()) - 6, 0, 30);
  return {fmt::format(" {}  {}  {}", name, bar(passed, room), left),
          session_.isHeld() ? Style::warning : Style::strong};
}

void LiveView::addLoad(std::vector<Line>& lines) const {
  const Load target = session_.state() == Session::State::exercising ? session_.target() : Load{};
  const Load commanded = session_.commanded();
  const bool isTreadmill = station_.traits().kind == StressDeviceType::Treadmill;
  lines.push_back(loadLine(isTreadmill ? "speed" : "power", isTreadmill ? "km/h" : "W", target.load,
                           commanded.load, &Load::load));
  if (isTreadmill) lines.push_back(loadLine("grade", "%", target.grade, commanded.grade, &Load::grade));
}

LiveView::Line LiveView::loadLine(const char* name, const char* unit, float target, float commanded,
                                  float Load::*part) const {
  const std::string asked = fmt::format(" {:<9} target {:5.1f}   asked {:5.1f}   ", name, target, commanded);
  if (!station_.traits().reportsLoad) return {fmt::format("{}{} (not reported)", asked, unit)};
  if (!station_.load()) return {fmt::format("{}reported     – {}", asked, unit), Style::faint};
  const Duration age = Clock::now() - station_.load()->at;
  const bool isOld = age > oldLoad;
  return {fmt::format("{}reported {:5.1f} {:<4}  {}{}", asked, station_.load()->value.*part, unit,
                      ageText(age), oldMark(isOld)),
          isOld ? Style::warning : Style::plain};
}

LiveView::Line LiveView::pedalLine() const {
  const Duration age = Clock::now() - station_.pedalRate()->at;
  const bool isOld = age > oldLoad;
  return {fmt::format(" {:<9} {:.0f} rpm  {}{}", "pedals", station_.pedalRate()->value, ageText(age),
                      oldMark(isOld)),
          isOld ? Style::warning : Style::plain};
}

// A pressure is good for the length of a stage.
LiveView::Line LiveView::pressureLine() const {
  if (!station_.pressure()) return {fmt::format(" {:<9} – mmHg", "pressure"), Style::faint};
  const auto& [pressure, at] = *station_.pressure();
  const Duration age = Clock::now() - at;
  const bool isOld = age > session_.protocol().phases[session_.phaseIndex()].duration;
  return {fmt::format(" {:<9} {:.0f}/{:.0f} mmHg  {}{}", "pressure", pressure.systolic, pressure.diastolic,
                      ageText(age), oldMark(isOld)),
          isOld ? Style::warning : Style::plain};
}

// An oximeter reports changes only, so silence says that the value is the same, not that it is old.
LiveView::Line LiveView::saturationLine() const {
  if (!station_.saturation()) return {fmt::format(" {:<9} – %", "SpO2"), Style::faint};
  const auto& [saturation, at] = *station_.saturation();
  const std::string unchanged = clockText(Clock::now() - at);
  if (saturation < 0) return {fmt::format(" {:<9} no finger for {}", "SpO2", unchanged), Style::warning};
  return {fmt::format(" {:<9} {:.0f} %  unchanged for {}", "SpO2", saturation, unchanged)};
}

void LiveView::addNews(std::vector<Line>& lines) const {
  for (const Entry& entry : *news_) {
    const bool isFailure = entry.kind == Entry::Kind::failure;
    lines.push_back(
        {fmt::format(" {:>6}  {:<9} {}", clockText(entry.at), nameOf(entry.role), harmless(entry.text)),
         isFailure ? Style::warning : Style::plain});
  }
}

}  // namespace tarsil::cli
