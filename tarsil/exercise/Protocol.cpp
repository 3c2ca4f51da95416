#include "tarsil/exercise/Protocol.hpp"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <numeric>
#include <optional>

#include "tarsil/guard/eventText.hpp"
#include "tarsil/support/numberText.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;

constexpr float fastestBelt = 25;     // km/h
constexpr float steepestGrade = 30;   // percent
constexpr float greatestPower = 999;  // watts
constexpr Duration longestPhase = 2h;
/// A cuff must be done, and the arm rest, before it is inflated again.
constexpr Duration shortestInterval = 1min;

std::string quoted(std::string_view word) {
  return '"' + std::string(word) + '"';
}

/// "25" and "0.5": a whole number without its fraction.
std::string numberText(float number) {
  std::string text = decimalText(number);
  if (text.ends_with(".0")) text.resize(text.size() - 2);
  return text;
}

std::vector<std::string_view> wordsOf(std::string_view line) {
  constexpr std::string_view blanks = " \t\r";
  std::vector<std::string_view> words;
  line = line.substr(0, line.find('#'));
  for (;;) {
    const std::size_t start = line.find_first_not_of(blanks);
    if (start == std::string_view::npos) return words;
    line.remove_prefix(start);
    const std::size_t size = std::min(line.find_first_of(blanks), line.size());
    words.push_back(line.substr(0, size));
    line.remove_prefix(size);
  }
}

/// Reads one file, line by line.
class Reader {
 public:
  explicit Reader(const std::string& file) : file_(file) {}

  Protocol read(std::string_view text) {
    while (!text.empty()) {
      ++line_;
      const std::size_t end = std::min(text.find('\n'), text.size());
      const auto words = wordsOf(text.substr(0, end));
      if (!words.empty()) readStatement(words);
      text.remove_prefix(std::min(end + 1, text.size()));
    }
    if (protocol_.name.empty()) fail("there is no name");
    if (!device_) fail("there is no device");
    if (stages_ == 0) fail("there is no stage");
    for (const auto& check : checksAtTheEnd_) check();
    return protocol_;
  }

 private:
  using Words = std::vector<std::string_view>;

  [[noreturn]] void fail(const std::string& reason) const { failAt(line_, reason); }

  [[noreturn]] void failAt(int line, const std::string& reason) const {
    throw ProtocolError(file_ + ":" + std::to_string(line) + ": " + reason);
  }

  void readStatement(const Words& words) {
    if (words[0] == "name") return readName(words);
    if (words[0] == "device") return readDevice(words);
    if (words[0] == "warm-up") return readPhase(Phase::Kind::warmUp, words);
    if (words[0] == "stage") return readPhase(Phase::Kind::stage, words);
    if (words[0] == "ramp") return readRamp(words);
    if (words[0] == "recovery") return readPhase(Phase::Kind::recovery, words);
    if (words[0] == "pressure") return readPressure(words);
    fail("unknown word " + quoted(words[0]));
  }

  void readName(const Words& words) {
    if (words.size() < 2) fail("name needs a text");
    protocol_.name = std::accumulate(
        words.begin() + 2, words.end(), std::string(words[1]),
        [](const std::string& sum, std::string_view word) { return sum + " " + std::string(word); });
  }

  void readDevice(const Words& words) {
    static const std::map<std::string_view, StressDeviceType> kinds{
        {"treadmill", StressDeviceType::Treadmill}, {"bicycle", StressDeviceType::Ergometer}};
    if (words.size() != 2 || !kinds.contains(words[1])) fail("device is either treadmill or bicycle");
    if (device_) fail("the device was named before");
    device_ = protocol_.device = kinds.at(words[1]);
  }

  void readPhase(Phase::Kind kind, const Words& words) {
    const std::size_t values = isTreadmill() ? 2 : 1;
    if (words.size() != 2 + values) {
      fail(std::string(words[0]) + " needs a duration and " + (isTreadmill() ? "km/h and percent" : "watts"));
    }
    Phase phase{.kind = kind, .duration = readDuration(words[1])};
    phase.load = phase.endLoad = readLoad(words[2]);
    if (isTreadmill()) phase.grade = readNumber(words[3], "grade", steepestGrade);
    add(phase);
  }

  void readRamp(const Words& words) {
    if (isTreadmill()) fail("a ramp is for bicycles");
    if (words.size() != 4) fail("ramp needs a duration, and watts at its beginning and at its end");
    add({.kind = Phase::Kind::stage,
         .duration = readDuration(words[1]),
         .load = readLoad(words[2]),
         .endLoad = readLoad(words[3])});
  }

  void add(const Phase& phase) {
    const auto before = protocol_.phases.empty() ? Phase::Kind::warmUp : protocol_.phases.back().kind;
    if (phase.kind < before) fail("phases come in the order warm-up, stages, recovery");
    if (phase.kind == Phase::Kind::stage) ++stages_;
    protocol_.phases.push_back(phase);
    protocol_.lines.push_back(line_);
  }

  void readPressure(const Words& words) {
    PressureTimes& times = protocol_.pressures;
    if (words.size() == 2 && words[1] == "rest") {
      times.atRest = true;
    } else if (words.size() == 3 && words[1] == "at") {
      readPoint(words[2], Phase::Kind::stage, times.inStage);
    } else if (words.size() == 3 && words[1] == "every") {
      times.every = readInterval(words[2], times.every);
    } else if (words.size() == 4 && words[1] == "recovery" && words[2] == "at") {
      readPoint(words[3], Phase::Kind::recovery, times.inRecovery);
    } else if (words.size() == 4 && words[1] == "recovery" && words[2] == "every") {
      times.everyInRecovery = readInterval(words[3], times.everyInRecovery);
    } else {
      fail("pressure is followed by rest, or by at or every with a time, or by recovery and one of these");
    }
  }

  /// A time that no phase of the kind lasts until would never come.
  void readPoint(std::string_view word, Phase::Kind kind, std::vector<Duration>& points) {
    const Duration point = readTime(word);
    points.push_back(point);
    std::sort(points.begin(), points.end());
    checksAtTheEnd_.emplace_back([this, kind, point, line = line_] {
      if (lasting(kind) > point) return;
      failAt(line,
             (kind == Phase::Kind::stage ? "no stage lasts until " : "the recovery does not last until ") +
                 clockText(point));
    });
  }

  Duration readInterval(std::string_view word, Duration before) const {
    if (before > Duration::zero()) fail("the interval of pressures was named before");
    const Duration interval = readTime(word);
    if (interval < shortestInterval) fail("pressures are at least 1:00 apart");
    return interval;
  }

  /// How long the longest stage is, or the whole recovery.
  Duration lasting(Phase::Kind kind) const {
    Duration longest{};
    Duration sum{};
    for (const Phase& phase : protocol_.phases) {
      if (phase.kind != kind) continue;
      longest = std::max(longest, phase.duration);
      sum += phase.duration;
    }
    return kind == Phase::Kind::stage ? longest : sum;
  }

  bool isTreadmill() const {
    if (!device_) fail("the device must be named before the first phase");
    return *device_ == StressDeviceType::Treadmill;
  }

  Duration readDuration(std::string_view word) const {
    const Duration duration = readTime(word);
    if (duration < 1s || duration > longestPhase) fail("a phase lasts from a second to two hours");
    return duration;
  }

  Duration readTime(std::string_view word) const {
    const std::size_t colon = std::min(word.find(':'), word.size());
    const auto minutes = readInteger(word.substr(0, colon));
    const auto seconds = readInteger(word.substr(std::min(colon + 1, word.size())));
    if (!minutes || !seconds || *minutes < 0 || *minutes > 120 || *seconds < 0 || *seconds > 59) {
      fail(quoted(word) + " is no duration, such as 3:00");
    }
    return std::chrono::minutes(*minutes) + std::chrono::seconds(*seconds);
  }

  float readLoad(std::string_view word) const {
    return isTreadmill() ? readNumber(word, "speed", fastestBelt) : readNumber(word, "power", greatestPower);
  }

  float readNumber(std::string_view word, std::string_view what, float greatest) const {
    const auto number = readFloat(word);
    if (!number) fail(quoted(word) + " is no " + std::string(what));
    if (*number < 0 || *number > greatest) {
      fail("the " + std::string(what) + " must be from 0 to " + numberText(greatest) + ", not " +
           std::string(word));
    }
    return *number;
  }

  const std::string& file_;
  int line_ = 0;
  int stages_ = 0;
  std::optional<StressDeviceType> device_;
  Protocol protocol_;
  /// What can be said of a statement when all phases are known only.
  std::vector<std::function<void()>> checksAtTheEnd_;
};

std::string phaseText(const Phase& phase, bool isTreadmill) {
  const bool isRamp = phase.load != phase.endLoad;
  std::string text = "recovery";
  if (phase.kind == Phase::Kind::warmUp) text = "warm-up";
  if (phase.kind == Phase::Kind::stage) text = isRamp ? "ramp" : "stage";
  text += " " + clockText(phase.duration) + " " + numberText(phase.load);
  if (isTreadmill) text += " " + numberText(phase.grade);
  if (isRamp) text += " " + numberText(phase.endLoad);
  return text + "\n";
}

std::string pressuresText(const PressureTimes& times) {
  std::string text;
  const auto add = [&text](const std::string& what, Duration time) {
    text += "pressure " + what + " " + clockText(time) + "\n";
  };
  if (times.atRest) text += "pressure rest\n";
  for (const Duration point : times.inStage) add("at", point);
  if (times.every > Duration::zero()) add("every", times.every);
  for (const Duration point : times.inRecovery) add("recovery at", point);
  if (times.everyInRecovery > Duration::zero()) add("recovery every", times.everyInRecovery);
  return text;
}

}  // namespace

Duration Protocol::duration() const {
  return std::accumulate(phases.begin(), phases.end(), Duration::zero(),
                         [](Duration sum, const Phase& phase) { return sum + phase.duration; });
}

std::string Protocol::phaseName(std::size_t index) const {
  if (phases[index].kind == Phase::Kind::warmUp) return "warm-up";
  if (phases[index].kind == Phase::Kind::recovery) return "recovery";
  const auto isStage = [](const Phase& phase) { return phase.kind == Phase::Kind::stage; };
  const auto upTo =
      std::count_if(phases.begin(), phases.begin() + static_cast<std::ptrdiff_t>(index) + 1, isStage);
  return "stage " + std::to_string(upTo) + " of " +
         std::to_string(std::count_if(phases.begin(), phases.end(), isStage));
}

Protocol readProtocol(std::string_view text, const std::string& file) {
  return Reader(file).read(text);
}

std::string protocolText(const Protocol& protocol) {
  const bool isTreadmill = protocol.device == StressDeviceType::Treadmill;
  std::string text = "name " + protocol.name + "\ndevice " + (isTreadmill ? "treadmill" : "bicycle") + "\n";
  for (const Phase& phase : protocol.phases) text += phaseText(phase, isTreadmill);
  return text + pressuresText(protocol.pressures);
}

}  // namespace tarsil
