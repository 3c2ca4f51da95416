// The two Lode drivers keep a few facts about the chunks that they have received; these tests compare them
// with drivers that keep the whole list and compute its check anew with every chunk, over random receptions.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "TreadmillTest.hpp"
#include "tarsil/codec/BinaryDecimalHex.hpp"
#include "tarsil/codec/CRC16.hpp"
#include "tarsil/codec/Crc16Register.hpp"
#include "tarsil/drivers/treadmill/LodeOEMTreadmill.hpp"
#include "tarsil/drivers/treadmill/LodeTreadmill.hpp"
#include "tarsil/support/hexText.hpp"
#include "tests/helpers/FatalStop.hpp"

namespace tarsil {
namespace {

using Entries = std::vector<std::string>;
using Check = std::array<std::string, 2>;

float numberOf(const std::string& hexDigits) {
  return static_cast<float>(BinaryDecimalHex::getDecimalToHex(hexDigits));
}

/// The Lode driver, word by word, with the whole list at hand.
class WholeLodeList {
 public:
  using Driver = LodeTreadmill;

  static Check checkOfAllButLast(const Entries& entries) {
    std::vector<std::uint16_t> values;
    for (std::size_t i = 0; i + 1 < entries.size(); ++i) {
      if (entries[i].size() == 2)
        values.push_back(static_cast<std::uint16_t>(BinaryDecimalHex::getDecimalToHex(entries[i])));
    }
    return CRC16::calculateCRC(values);
  }

  RecordedCalls receive(const std::string& chunk) {
    RecordedCalls calls;
    result.push_back(chunk);
    const std::size_t count = result.size();
    if (count < 6) return calls;
    if (checkOfAllButLast(result) != Check{result[count - 2], result[count - 1]}) return calls;
    const std::string code = result[1];
    const std::string status = result[2];
    if (status != "80") {
      result.clear();
      calls.push_back(error(status, ""));
      return calls;
    }
    if (code == "08") speed = numberOf(result[4] + result[5]);
    if (code == "0A") grade = numberOf(result[4] + result[5]);
    if (grade != -1.0F && speed != -1.0F) calls.push_back(treadmillLoad(speed, grade));
    if (code != "44") {
      result.clear();
    } else if (count == 15) {
      stopped = true;
    }
    return calls;
  }

  /// The two bytes that make an accepted reply of the list, the low one being part of what it checks; none
  /// when no two do.
  Bytes acceptedCheck() const {
    Crc16Register before;
    for (const std::string& entry : result) {
      if (entry.size() == 2) before.add(hex(entry).front());
    }
    for (unsigned low = 0; low <= 0xFF; ++low) {
      Crc16Register crc = before;
      crc.add(static_cast<std::uint8_t>(low));
      if ((crc.value() & 0xFF) == low)
        return {static_cast<std::uint8_t>(low), static_cast<std::uint8_t>(crc.value() >> 8)};
    }
    return {};
  }

  bool agreesWith(const LodeTreadmill& driver) const {
    return driver.requestSpeed == speed && driver.requestGrade == grade &&
           driver.result.count() == result.size();
  }

  Entries result;
  bool stopped = false;

 private:
  float speed = -1.0F;
  float grade = -1.0F;
};

/// The same for the Lode OEM driver.
class WholeLodeOEMList {
 public:
  using Driver = LodeOEMTreadmill;

  static std::optional<Check> checkOfAllButLast(const Entries& entries) {
    std::vector<std::uint16_t> values;
    for (std::size_t i = 0; i + 1 < entries.size(); ++i) {
      if (entries[i].empty() || entries[i].size() == 2) continue;
      const auto value = BinaryDecimalHex::getDecimalToHex(entries[i]);
      if (value > 0xFFFF) return std::nullopt;
      values.push_back(static_cast<std::uint16_t>(value));
    }
    return CRC16::calculateCRC(values);
  }

  RecordedCalls receive(const std::string& chunk) {
    RecordedCalls calls;
    result.push_back(chunk);
    const std::size_t count = result.size();
    if (count < 6) return calls;
    const auto check = checkOfAllButLast(result);
    stopped = !check;
    if (stopped || *check != Check{result[count - 2], result[count - 1]}) return calls;
    if (result[2] == "EF") calls.push_back(error("", "send failure"));
    if (result[2] != "0A") return calls;
    if (isState) {
      isState = false;
      calls.push_back(deviceIsReady(true));
      return calls;
    }
    stopped = count < 12;
    if (stopped) return calls;
    calls.push_back(treadmillLoad(numberOf(result[8] + result[9]), numberOf(result[10] + result[11])));
    return calls;
  }

  /// The same; here the check bytes themselves are never part of what is checked.
  Bytes acceptedCheck() const {
    Entries entries = result;
    entries.emplace_back();
    const auto check = checkOfAllButLast(entries);
    return check ? hex((*check)[0] + (*check)[1]) : Bytes{};
  }

  bool agreesWith(const LodeOEMTreadmill& driver) const {
    return driver.isState == isState && driver.result.count() == result.size();
  }

  Entries result;
  bool isState = true;
  bool stopped = false;
};

/// Chunks that reach far into the rules: most replies begin as a device's do, and their check often fits.
template <class Model>
class Receptions {
 public:
  explicit Receptions(unsigned seed) : random_(seed) {}

  Bytes next(const Model& model) {
    if (planned_.empty()) plan(model);
    const Bytes chunk = planned_.front();
    planned_.pop_front();
    return chunk;
  }

 private:
  bool oneIn(unsigned n) { return random_() % n == 0; }
  std::uint8_t oneOf(const Bytes& choices) { return choices[random_() % choices.size()]; }

  void plan(const Model& model) {
    if (model.result.empty() && !oneIn(8)) return planReplyHead();
    if (model.result.size() >= 4 && oneIn(3)) planCheck(model);
    if (planned_.empty()) planned_.push_back(anything());
  }

  void planReplyHead() {
    if constexpr (std::is_same_v<Model, WholeLodeList>) {
      for (const std::uint8_t byte : {std::uint8_t{0x02}, oneOf(hex("08 0A 08 0A 44 01")),
                                      oneOf(hex("80 80 80 80 01 40")), std::uint8_t{2}})
        planned_.push_back({byte});
    } else {
      for (const std::uint8_t byte : {std::uint8_t{0xAC}, std::uint8_t{0x01}, oneOf(hex("0A 0A EF 0B"))})
        planned_.push_back({byte});
    }
    for (auto length = random_() % 10; length > 0; --length) planned_.push_back(anything());
  }

  void planCheck(const Model& model) {
    for (const std::uint8_t byte : model.acceptedCheck()) planned_.push_back({byte});
  }

  Bytes anything() {
    if (!oneIn(12)) return {oneOf(hex("00 00 01 32 80 44 0A FF"))};
    switch (random_() % 4) {
      case 0:
        return {};
      case 1:
        return {oneOf(hex("00 01")), oneOf(hex("41 FF"))};
      case 2:
        return {0, oneOf(hex("00 12")), oneOf(hex("00 34"))};
      default:
        return oneIn(4) ? hex("01 00 00") : hex("00 00 00 00 00 FF FF");
    }
  }

  std::mt19937 random_;
  std::deque<Bytes> planned_;
};

template <class Model>
class LodeHistoryTest : public TreadmillTest<typename Model::Driver> {};

using Models = testing::Types<WholeLodeList, WholeLodeOEMList>;
TYPED_TEST_SUITE(LodeHistoryTest, Models);

TYPED_TEST(LodeHistoryTest, ReportsAsIfItKeptTheWholeList) {
  constexpr unsigned histories = 300;
  constexpr int receptionsAtMost = 100;
  unsigned stops = 0;
  std::size_t reports = 0;
  for (unsigned seed = 0; seed < histories; ++seed) {
    SCOPED_TRACE(seed);
    Receptions<TypeParam> receptions(seed);
    TypeParam expected;
    this->treadmill = std::make_shared<typename TypeParam::Driver>();
    this->treadmill->kiv_delegate = this->host;
    this->treadmill->isState = true;
    for (int i = 0; i < receptionsAtMost && !expected.stopped; ++i) {
      const Bytes chunk = receptions.next(expected);
      const auto expectedCalls = expected.receive(upperHexText(chunk));
      const bool stopped = fatalReason([&] { this->receive(chunk); }).has_value();
      ASSERT_EQ(this->host.takeCalls(), expectedCalls);
      ASSERT_EQ(stopped, expected.stopped);
      ASSERT_TRUE(expected.agreesWith(*this->treadmill));
      reports += expectedCalls.size();
    }
    stops += expected.stopped ? 1 : 0;
  }
  // Both ways of ending have been seen, and many reports.
  EXPECT_GT(stops, 0U);
  EXPECT_LT(stops, histories);
  EXPECT_GT(reports, histories);
  this->RecordProperty("stops", static_cast<int>(stops));
  this->RecordProperty("reports", static_cast<int>(reports));
}

}  // namespace
}  // namespace tarsil
