// The drivers keep two facts about the text that they have received; these tests compare them with drivers
// that keep the whole text, over random receptions.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/drivers/ergometer/ErgolineP10.hpp"
#include "tarsil/drivers/ergometer/ErgosanaP10.hpp"
#include "tarsil/support/numberText.hpp"
#include "tests/helpers/FatalStop.hpp"
#include "tests/helpers/RecordingHost.hpp"

namespace tarsil {
namespace {

using Characters = std::vector<std::string>;

/// What the drivers do, word by word, with the whole text at hand.
class WholeText {
 public:
  explicit WholeText(bool loadEmptiesText) : loadEmptiesText_(loadEmptiesText) {}

  void receive(const Characters& characters) {
    text_.insert(text_.end(), characters.begin(), characters.end());
    if (!contains("\r")) return;
    if (contains("B")) report(ergometerPower(number()));
    if (contains("n")) report(ergometerRpm(number()));
    if (contains("O")) store(systolic_);
    if (contains("U")) store(diastolic_);
    if (!isBPCommand) return;
    if (!systolic_ || !diastolic_) throw FatalStop("pressure missing");
    calls.push_back(bloodPressure(*systolic_, *diastolic_, 0));
    systolic_.reset();
    diastolic_.reset();
  }

  RecordedCalls calls;
  bool isBPCommand = false;

 private:
  bool contains(const char* marker) const {
    return std::find(text_.begin(), text_.end(), marker) != text_.end();
  }

  float number() const {
    std::string field;
    for (std::size_t i = 1; i < std::min<std::size_t>(text_.size(), 4); ++i) field += text_[i];
    const auto value = readFloat(field);
    if (!value) throw FatalStop("no number");
    return *value;
  }

  void report(const RecordedCall& call) {
    calls.push_back(call);
    if (loadEmptiesText_) text_.clear();
  }

  void store(std::optional<float>& pressure) {
    pressure = number();
    isBPCommand = systolic_ && diastolic_;
  }

  bool loadEmptiesText_;
  Characters text_;
  std::optional<float> systolic_;
  std::optional<float> diastolic_;
};

/// What a device might send: mostly replies, sometimes noise, mostly cut between replies, sometimes anywhere.
class Receptions {
 public:
  explicit Receptions(unsigned seed) : random_(seed) {}

  Characters next() {
    Characters characters;
    do {
      if (upcoming_.empty()) upcoming_ = oneIn(20) ? noise() : reply();
      characters.push_back(upcoming_.front());
      upcoming_.pop_front();
    } while (upcoming_.empty() ? oneIn(5) : !oneIn(30));
    return characters;
  }

  bool oneIn(unsigned n) { return random_() % n == 0; }

 private:
  using Queue = std::deque<std::string>;

  Queue reply() {
    return {oneOf({"B", "n", "O", "U", "x", "é"}), oneOf({"0", "1", "-", "+"}), "2", "5", "\r"};
  }

  Queue noise() {
    Queue characters(1 + random_() % 4);
    for (auto& character : characters)
      character = oneOf({"B", "n", "O", "U", "\r", "1", "2", ".", "é", "瓦"});
    return characters;
  }

  std::string oneOf(const Characters& choices) { return choices[random_() % choices.size()]; }

  std::mt19937 random_;
  Queue upcoming_;
};

std::string joined(const Characters& characters) {
  std::string text;
  for (const auto& character : characters) text += character;
  return text;
}

template <class Model>
class P10HistoryTest : public testing::Test {
 protected:
  ~P10HistoryTest() override { StressECGDeviceManager::share().delegate = nullptr; }
};

using Models = testing::Types<ErgolineP10, ErgosanaP10>;
TYPED_TEST_SUITE(P10HistoryTest, Models);

TYPED_TEST(P10HistoryTest, ReportsAsIfItKeptTheWholeText) {
  constexpr unsigned histories = 1000;
  constexpr int receptionsAtMost = 20;
  int stopped = 0;
  int reports = 0;
  for (unsigned seed = 0; seed < histories; ++seed) {
    SCOPED_TRACE(seed);
    Receptions receptions(seed);
    RecordingHost host;
    StressECGDeviceManager::share().delegate = host;
    const auto ergometer = std::make_shared<TypeParam>();
    ergometer->kiv_delegate = host;
    WholeText expected(std::is_same_v<TypeParam, ErgosanaP10>);
    for (int i = 0; i < receptionsAtMost; ++i) {
      if (receptions.oneIn(40)) ergometer->isBPCommand = expected.isBPCommand = true;
      const Characters reception = receptions.next();
      bool expectedStop = false;
      try {
        expected.receive(reception);
      } catch (const FatalStop&) {
        expectedStop = true;
      }
      const bool stop = fatalReason([&] { ergometer->processReply(joined(reception)); }).has_value();
      ASSERT_EQ(host.calls(), expected.calls);
      ASSERT_EQ(stop, expectedStop);
      ASSERT_EQ(ergometer->isBPCommand, expected.isBPCommand);
      stopped += stop;
      if (stop) break;
    }
    reports += static_cast<int>(expected.calls.size());
  }
  // Both ways of ending have been seen, and many reports.
  EXPECT_GT(stopped, 0);
  EXPECT_LT(stopped, static_cast<int>(histories));
  EXPECT_GT(reports, static_cast<int>(histories));
}

}  // namespace
}  // namespace tarsil
