// The driver keeps only the characters that can still count; this test compares it with a driver that keeps
// all of them, over random receptions.

#include <gtest/gtest.h>

#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/drivers/vitals/BPDevice.hpp"
#include "tarsil/regex/RegularExpression.hpp"
#include "tarsil/support/numberText.hpp"
#include "tests/helpers/FatalStop.hpp"
#include "tests/helpers/PrintedLines.hpp"
#include "tests/helpers/RecordingHost.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

constexpr std::string_view initialisationEcho = "INITR\n\r00000\n\r00000\n\r00000\n\r";

/// What the driver does, step by step, with the whole text at hand.
class WholeText {
 public:
  void receive(const std::string& characters) {
    text += characters;
    if (type == Tango_Type::SPO2) {
      if (saturation_.matchesWhole(text)) calls.push_back(oxygenSaturation(number(text.substr(0, 4)), 1));
      type = Tango_Type::normal;
    }
    if (text.ends_with(initialisationEcho)) {
      calls.push_back(bloodPressure(0, 0, 3));
      text.clear();
    }
    if (!record_.matchesWhole(text)) return;
    const auto first = text.find("\n\r");
    const auto second = first == std::string::npos ? first : text.find("\n\r", first + 2);
    if (second == std::string::npos) throw FatalStop("fewer than three parts");
    const float systolic = number(text.substr(first + 2, second - first - 2));
    const auto third = text.find("\n\r", second + 2);
    const float diastolic =
        number(text.substr(second + 2, third == std::string::npos ? third : third - second - 2));
    int status = systolic > 223 ? 1 : systolic == 0 || diastolic == 0 ? 3 : systolic <= diastolic ? 2 : 0;
    if (type == Tango_Type::LAST) status = 4;
    calls.push_back(bloodPressure(systolic, diastolic, status));
    text.clear();
    type = Tango_Type::normal;
  }

  RecordedCalls calls;
  std::optional<Tango_Type> type;
  std::string text;

 private:
  static float number(const std::string& part) { return readFloat(part).value_or(0); }

  RegularExpression saturation_{R"([0-9]{4}%\s\s)"};
  RegularExpression record_{R"([0-9]{3,4}[A-Z]\s\s.[0-9]{4}\s\s.[0-9]{4}\s\s.[0-9]{4}\s\s[0]{0,1})"};
};

/// What a monitor might send: records, echoes, oxygen saturations and noise, cut between them or anywhere.
class Receptions {
 public:
  explicit Receptions(unsigned seed) : random_(seed) {}

  std::string next() {
    std::string characters;
    do {
      if (upcoming_.empty()) upcoming_ = message();
      characters += upcoming_.front();
      upcoming_.pop_front();
    } while (upcoming_.empty() ? oneIn(8) : !oneIn(40));
    return characters;
  }

  bool oneIn(unsigned n) { return random_() % n == 0; }

 private:
  using Characters = std::deque<std::string>;

  Characters message() {
    if (oneIn(10)) return noise();
    if (oneIn(3)) return split(initialisationEcho);
    if (oneIn(4)) return split("0097%\n\r");
    return record();
  }

  static Characters split(std::string_view ascii) {
    Characters characters;
    for (const char character : ascii) characters.emplace_back(1, character);
    return characters;
  }

  Characters record() {
    const std::string_view blanks = oneIn(20) ? "\r\n" : "\n\r";
    Characters characters = split(oneOf({"123A", "1234Z", "1234A"}));
    for (int group = 0; group < 3; ++group) {
      append(characters, split(blanks));
      characters.push_back(oneOf({"+", "-", "x", "瓦", " "}));
      append(characters, split(oneOf({"0000", "0080", "0120", "0223", "0230"})));
    }
    append(characters, split(blanks));
    if (oneIn(4)) characters.emplace_back("0");
    return characters;
  }

  Characters noise() {
    Characters characters(1 + random_() % 6);
    for (auto& character : characters) character = oneOf({"\n", "\r", "0", "A", "é", "瓦", "😀"});
    return characters;
  }

  static void append(Characters& characters, const Characters& more) {
    characters.insert(characters.end(), more.begin(), more.end());
  }

  std::string oneOf(const std::vector<std::string>& choices) { return choices[random_() % choices.size()]; }

  std::mt19937 random_;
  Characters upcoming_;
};

std::string lastCharacters(const std::string& text, std::size_t count) {
  std::size_t begin = text.size();
  while (begin > 0 && count > 0) {
    --begin;
    const bool continues = (static_cast<unsigned char>(text[begin]) & 0xC0U) == 0x80U;
    if (!continues) --count;
  }
  return text.substr(begin);
}

TEST(BPDeviceHistoryTest, ReportsAsIfItKeptTheWholeText) {
  constexpr unsigned histories = 500;
  constexpr int receptionsAtMost = 40;
  const PrintedLines printed;
  unsigned stopped = 0;
  std::size_t reports = 0;
  for (unsigned seed = 0; seed < histories; ++seed) {
    SCOPED_TRACE(seed);
    Receptions receptions(seed);
    const RecordingHost host;
    const auto tango = std::make_shared<BPDevice>();
    tango->kiv_delegate = host;
    WholeText expected;
    for (int i = 0; i < receptionsAtMost; ++i) {
      if (receptions.oneIn(5)) tango->type = expected.type = Tango_Type::LAST;
      if (receptions.oneIn(5)) tango->type = expected.type = Tango_Type::SPO2;
      const std::string reception = receptions.next();
      bool expectedStop = false;
      try {
        expected.receive(reception);
      } catch (const FatalStop&) {
        expectedStop = true;
      }
      const bool stop = fatalReason([&] { tango->processReply(text(reception)); }).has_value();
      ASSERT_EQ(host.calls(), expected.calls);
      ASSERT_EQ(stop, expectedStop);
      ASSERT_EQ(tango->type, expected.type);
      ASSERT_EQ(tango->taskJoint, lastCharacters(expected.text, 30));
      stopped += stop;
      if (stop) break;
    }
    reports += expected.calls.size();
  }
  EXPECT_GT(stopped, 0U);
  EXPECT_LT(stopped, histories);
  EXPECT_GT(reports, histories);
}

}  // namespace
}  // namespace tarsil
