#include "tools/tarsil/run/Protocol.hpp"

#include <fmt/format.h>

#include <chrono>
#include <map>
#include <numeric>
#include <optional>

#include "tarsil/support/numberText.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;

constexpr float fastestBelt = 25;     // km/h
constexpr float steepestGrade = 30;   // percent
constexpr float greatestPower = 999;  // watts
constexpr Duration longestPhase = 2h;

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
    return protocol_;
  }

 private:
  using Words = std::vector<std::string_view>;

  [[noreturn]] void fail(const std::string& reason) const {
    throw ProtocolError(fmt::format("{}:{}: {}", file_, line_, reason));
  }

  void readStatement(const Words& words) {
    if (words[0] == "name") return readName(words);
    if (words[0] == "device") return readDevice(words);
    if (words[0] == "warm-up") return readPhase(Phase::Kind::warmUp, words);
    if (words[0] == "stage") return readPhase(Phase::Kind::stage, words);
    if (words[0] == "ramp") return readRamp(words);
    if (words[0] == "recovery") return readPhase(Phase::Kind::recovery, words);
    fail(fmt::format("unknown word \"{}\"", words[0]));
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
      fail(fmt::format("{} needs a duration and {}", words[0], isTreadmill() ? "km/h and percent" : "watts"));
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
  }

  bool isTreadmill() const {
    if (!device_) fail("the device must be named before the first phase");
    return *device_ == StressDeviceType::Treadmill;
  }

  Duration readDuration(std::string_view word) const {
    const std::size_t colon = word.find(':');
    if (colon == std::string_view::npos) fail(fmt::format("\"{}\" is no duration, such as 3:00", word));
    const auto minutes = readInteger(word.substr(0, colon));
    const auto seconds = readInteger(word.substr(colon + 1));
    if (!minutes || !seconds || *minutes < 0 || *minutes > 120 || *seconds < 0 || *seconds > 59) {
      fail(fmt::format("\"{}\" is no duration, such as 3:00", word));
    }
    const Duration duration = std::chrono::minutes(*minutes) + std::chrono::seconds(*seconds);
    if (duration < 1s || duration > longestPhase) fail("a phase lasts from a second to two hours");
    return duration;
  }

  float readLoad(std::string_view word) const {
    return isTreadmill() ? readNumber(word, "speed", fastestBelt) : readNumber(word, "power", greatestPower);
  }

  float readNumber(std::string_view word, std::string_view what, float greatest) const {
    const auto number = readFloat(word);
    if (!number) fail(fmt::format("\"{}\" is no {}", word, what));
    if (*number < 0 || *number > greatest) fail(fmt::format("the {} must be from 0 to {}", what, greatest));
    return *number;
  }

  const std::string& file_;
  int line_ = 0;
  int stages_ = 0;
  std::optional<StressDeviceType> device_;
  Protocol protocol_;
};

}  // namespace

Duration Protocol::duration() const {
  return std::accumulate(phases.begin(), phases.end(), Duration::zero(),
                         [](Duration sum, const Phase& phase) { return sum + phase.duration; });
}

Protocol readProtocol(std::string_view text, const std::string& file) {
  return Reader(file).read(text);
}

}  // namespace tarsil::cli
