#include "tools/tarsil/console/Console.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <utility>
#include <variant>

#include "tarsil/guard/eventText.hpp"
#include "tarsil/support/numberText.hpp"
#include "tools/tarsil/didYouMean.hpp"
#include "tools/tarsil/exerciseModel.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;

constexpr double longestWait = 3600;  // seconds

std::vector<std::string> wordsOf(const std::string& line) {
  std::istringstream stream(line);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

/// A device's words must not steer the terminal.
std::string harmless(std::string text) {
  std::replace_if(
      text.begin(), text.end(),
      [](char byte) { return static_cast<unsigned char>(byte) < ' ' || byte == 0x7f; }, ' ');
  return text;
}

/// "02 05 02"
std::string spaced(const std::string& hex) {
  std::string text;
  for (std::size_t at = 0; at < hex.size(); at += 2) text += (at == 0 ? "" : " ") + hex.substr(at, 2);
  return text;
}

template <class Value>
bool isKnown(const Reading<Value>& reading) {
  return reading.state == Reading<Value>::State::fresh || reading.state == Reading<Value>::State::stale;
}

template <class Value>
std::string ageOf(const Reading<Value>& reading) {
  const double seconds = std::chrono::duration<double>(Clock::now() - reading.at).count();
  return fmt::format("({:.1f} s{})", std::min(seconds, 99.9), reading.isFresh() ? "" : ", OLD");
}

/// What repeats every second is shown in the values.
bool isNews(const EventText& told) {
  return told.kind != EventKind::traffic && told.word != "requestLoad" && told.word != "load" &&
         told.word != "power" && told.word != "rpm" && told.word != "saturation" && told.word != "accepted" &&
         told.word != "printed";
}

}  // namespace

Console::Console(GuardedStation& station, DeviceModel model, std::function<void(const std::string&)> print)
    : station_(station), model_(std::move(model)), print_(std::move(print)), words_(words()) {}

Console::~Console() {
  if (waiting_) waiting_->invalidate();
}

std::vector<Console::Word> Console::words() {
  const auto plain = [this](Answer (GuardedStation::*command)()) {
    return [this, command](const std::vector<std::string>&) { answer((station_.*command)()); };
  };
  std::vector<Word> words{
      {"start", "start: starts the belt, or the exercise", plain(&GuardedStation::start)}};
  const ExerciseFacts& facts = *model_.exercise;
  if (model_.exercise->canBeDriven()) {
    words.push_back({"load",
                     isTreadmill() ? fmt::format("load SPEED GRADE: {}; {}", facts.speed.text("km/h"),
                                                 facts.grade.text("%"))
                                   : "load WATTS: " + facts.power.text("W"),
                     [this](const auto& given) { setLoad(given); }});
  }
  words.push_back({"stop", "stop: stops until the device is seen to stand", plain(&GuardedStation::stop)});
  words.push_back({"reset", "reset: after a protective stop", plain(&GuardedStation::reset)});
  if (station_.measuresPressure()) {
    words.push_back(
        {"pressure", "pressure: measures the blood pressure", plain(&GuardedStation::measurePressure)});
    words.push_back({"abort", "abort: aborts that", plain(&GuardedStation::abortPressure)});
  }
  words.push_back(
      {"values", "values: what the devices say, with its age", [this](const auto&) { tellValues(); }});
  words.push_back({"traffic", "traffic on|off: every byte that is sent (>) and received (<)",
                   [this](const auto& given) { setTraffic(given); }});
  words.push_back({"wait", "wait SECONDS: before the next line", [this](const auto& given) { wait(given); }});
  words.push_back({"help", "help: this list", [this](const auto&) { help(); }});
  words.push_back({"quit", "quit: stops what moves and leaves", [this](const auto&) { isLeft_ = true; }});
  return words;
}

void Console::take(const std::string& line) {
  lines_.push_back(line);
  doNext();
}

void Console::doNext() {
  while (!waiting_ && !lines_.empty()) {
    const std::string line = std::move(lines_.front());
    lines_.pop_front();
    act(line);
  }
}

void Console::act(const std::string& line) {
  const auto given = wordsOf(line);
  if (given.empty()) return;
  std::vector<std::string> names;
  for (const Word& word : words_) {
    if (word.name == given.front()) return word.act(given);
    names.emplace_back(word.name);
  }
  print_(fmt::format("there is no command \"{}\"; see help{}", harmless(given.front()),
                     didYouMean(given.front(), names)));
}

void Console::answer(const Answer& answer) {
  // What is accepted shows itself.
  if (!answer.isAccepted()) print_("refused: " + answer.reason());
}

void Console::setLoad(const std::vector<std::string>& words) {
  std::vector<float> numbers;
  for (std::size_t i = 1; i < words.size(); ++i) {
    const auto number = readFloat(words[i]);
    if (!number) return print_(fmt::format("\"{}\" is no number", harmless(words[i])));
    numbers.push_back(*number);
  }
  if (numbers.size() != (isTreadmill() ? 2U : 1U))
    return print_(isTreadmill() ? "load SPEED GRADE, in km/h and percent" : "load WATTS");
  answer(station_.setLoad(isTreadmill() ? Load{.speed = numbers[0], .grade = numbers[1]}
                                        : Load{.power = numbers[0]}));
}

void Console::setTraffic(const std::vector<std::string>& words) {
  if (words.size() != 2 || (words[1] != "on" && words[1] != "off")) return print_("traffic on, or off");
  showsTraffic_ = words[1] == "on";
}

void Console::wait(const std::vector<std::string>& words) {
  const auto seconds = words.size() == 2 ? readDouble(words[1]) : std::nullopt;
  if (!seconds || !(*seconds >= 0 && *seconds <= longestWait)) return print_("wait SECONDS, up to 3600");
  const auto duration = std::chrono::duration_cast<Duration>(std::chrono::duration<double>(*seconds));
  waiting_ = Timer::scheduled(std::max<Duration>(duration, 1ms), false, [this](Timer&) {
    waiting_ = nullptr;
    doNext();
  });
}

void Console::help() {
  for (const Word& word : words_) print_("  " + word.usage);
}

void Console::tellValues() {
  print_("  " + values());
  const Readings readings = station_.readings();
  if (isKnown(readings.pedalRate))
    print_(fmt::format("  {:.0f} rpm {}", readings.pedalRate.value, ageOf(readings.pedalRate)));
  if (isKnown(readings.pressure))
    print_(fmt::format("  {:.0f}/{:.0f} mmHg {}", readings.pressure.value.systolic,
                       readings.pressure.value.diastolic, ageOf(readings.pressure)));
  if (isKnown(readings.saturation))
    print_(fmt::format("  {:.0f} % SpO2 {}", readings.saturation.value, ageOf(readings.saturation)));
  for (const AlarmKind alarm : station_.alarms()) print_(fmt::format("  ALARM: {}", shortText(alarm)));
}

std::string Console::values() const {
  if (!station_.reportsLoad()) return "load not reported";
  const Readings readings = station_.readings();
  const auto& load = isTreadmill() ? readings.speed : readings.power;
  if (!isKnown(load)) return "no answer yet";
  const std::string text = isTreadmill()
                               ? fmt::format("{:.1f} km/h {:.1f} %", load.value, readings.grade.value)
                               : fmt::format("{:.0f} W", load.value);
  return text + " " + ageOf(load);
}

void Console::hear(const Event& event) {
  const EventText told = textOf(event, kindOf(model_));
  const std::string time = clockText(event.at - start_);
  if (told.kind == EventKind::traffic) {
    const bool isSent = std::holds_alternative<Sent>(event.what);
    if (showsTraffic_) print_(fmt::format("{:>6} {} {}", time, isSent ? '>' : '<', spaced(told.text)));
    return;
  }
  if (isNews(told)) print_(fmt::format("{:>6}  {:<9} {}", time, roleOf(event.source), harmless(told.text)));
}

}  // namespace tarsil::cli
