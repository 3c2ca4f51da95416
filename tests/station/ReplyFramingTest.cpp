// From the line to the host: every model's replies through what adapters and cables do, its framing and its
// driver.

#include "tarsil/core/ReplyFraming.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "simulators/devices/acceptedReply.hpp"
#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/station/standardCatalogue.hpp"
#include "tests/helpers/PrintedLines.hpp"
#include "tests/helpers/RecordingHost.hpp"
#include "tests/helpers/ScriptedPort.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

/// The same numbers in every run and with every library.
class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}
  unsigned below(unsigned limit) { return static_cast<unsigned>(engine_() % limit); }
  std::uint8_t byte() { return static_cast<std::uint8_t>(below(256)); }

 private:
  std::mt19937 engine_;
};

/// What a device says in one go, and what its host then hears.
struct Saying {
  Bytes bytes;
  RecordedCalls heard;
};

Bytes joined(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

template <class... Values>
Bytes printed(const char* format, Values... values) {
  std::array<char, 64> characters{};
  const int size = std::snprintf(characters.data(), characters.size(), format, values...);
  return Bytes(characters.begin(), characters.begin() + size);
}

Saying lodeTreadmill(Random& random) {
  using simulators::acceptedReply;
  const auto speed = random.byte();
  const auto grade = random.byte();
  switch (random.below(4)) {
    case 0:
      return {acceptedReply(0x05, 0x80, {}), {}};
    case 1:
      return {acceptedReply(0x07, 0x08, {}),
              {error("08", "treadmill could not set elevation, emergency stop active")}};
    case 2:  // an answer that would make its driver deaf
      return {acceptedReply(0x44, 0x80, Bytes{0, speed, 0, grade}), {}};
    default:
      return {joined(acceptedReply(0x08, 0x80, Bytes{0, speed}), acceptedReply(0x0A, 0x80, Bytes{0, grade})),
              {treadmillLoad(speed, grade)}};
  }
}

Saying lodeOEMTreadmill(Random& random) {
  // Also a belt that stands, and bytes that nobody reads which look like a check.
  const auto speed = static_cast<std::uint8_t>(random.below(4) == 0 ? 0 : random.byte());
  const auto grade = static_cast<std::uint8_t>(random.below(4) == 0 ? 0 : random.byte());
  const std::array<std::uint8_t, 3> unread{0x00, 0xC1, 0xC0};
  const auto any = [&] { return unread.at(random.below(3)); };
  if (random.below(8) == 0) return {hex("AC 01 EF 01 02 00 00"), {error("", "send failure")}};
  return {Bytes{0xAC, 0x01, 0x0A, any(), any(), any(), any(), any(), 0x00, speed, 0x00, grade, 0x00, 0x00},
          {treadmillLoad(speed, grade)}};
}

Saying trackMaster(Random& random) {
  switch (random.below(6)) {
    case 0:
      return {{static_cast<std::uint8_t>(0xB1 + random.below(4))}, {successfully()}};
    case 1:
      return {{0xBE}, {error("00", "Beyond the limit")}};
    case 2:
      return {{0xBF}, {error("00", "disable instruction")}};
    default:
      break;
  }
  // 10 tenths of a mile per hour are 1.6 km/h.
  const unsigned tens = random.below(12);
  const unsigned grade = random.below(250);
  return {joined(joined({0xD1}, printed("%03u0", tens)), joined({0xD2}, printed("%04u", grade))),
          {treadmillLoad(std::stof(std::to_string(tens * 16 / 10) + "." + std::to_string(tens * 16 % 10)),
                         static_cast<float>(grade) / 10)}};
}

Saying p10(Random& random) {
  const unsigned value = random.below(1000);
  const auto number = static_cast<float>(value);
  switch (random.below(4)) {
    case 0:
      return {printed("n%03u\r", value), {ergometerRpm(number)}};
    case 1: {  // in either order, and something else between the halves
      const unsigned other = random.below(1000);
      if (random.below(2) == 0) {
        return {joined(printed("O%03u\r", value), printed("U%03u\r", other)),
                {bloodPressure(number, static_cast<float>(other), 0)}};
      }
      return {joined(printed("U%03u\rB%03u\r", value, value), printed("O%03u\r", other)),
              {ergometerPower(number), bloodPressure(static_cast<float>(other), number, 0)}};
    }
    case 2:
      return {text("075W\r"), {}};
    default:
      return {printed("B%03u\r", value), {ergometerPower(number)}};
  }
}

Saying tango(Random& random) {
  if (random.below(4) == 0) {
    return {text("INITR\n\r00000\n\r00000\n\r00000\n\r"), {bloodPressure(0, 0, 3)}};
  }
  const unsigned diastolic = 40 + random.below(60);
  const unsigned systolic = diastolic + 1 + random.below(100);
  return {printed("%03u%c\n\r+%04u\n\r+%04u\n\r+%04u\n\r", random.below(2000),
                  'A' + static_cast<int>(random.below(26)), systolic, diastolic, systolic),
          {bloodPressure(static_cast<float>(systolic), static_cast<float>(diastolic), 0)}};
}

Saying medxing(Random& random) {
  const auto saturation = static_cast<std::uint8_t>(random.below(101));
  const auto pulse = static_cast<std::uint8_t>(101 + random.below(100));
  return {Bytes{0xFF, 0xFE, 0x0A, 0x01, 0x23, 0x95, 0x00, 0x00, saturation, pulse},
          {oxygenSaturation(saturation, 1)}};
}

/// A machine whose driver discards whatever it says.
Saying unread(Random& random) {
  return {{random.byte(), random.byte()}, {}};
}

using Speaker = std::function<Saying(Random&)>;

const std::map<std::string, Speaker> speakers{
    {"TM-400V2", unread},
    {"LodeOEMTreadmill", lodeOEMTreadmill},
    {"LodeTreadmill", lodeTreadmill},
    {"TrackMaster", trackMaster},
    {"KivBicycle", unread},
    {"Ergometer38K4", unread},
    {"ErgolineK2.4P10", p10},
    {"ErgosanaK4.8P10", p10},
    {"ErgometricsK2.4P3", unread},
    {"Tango", tango},
    {"MEDXINGPort", medxing},
};

constexpr int sessions = 40;
constexpr int sayingsOfASession = 60;

class Framing : public testing::TestWithParam<DeviceModel> {
 protected:
  Framing() {
    decoder->kiv_delegate = host;
    StressECGDeviceManager::share().delegate = host;
  }
  ~Framing() override { StressECGDeviceManager::share().delegate = nullptr; }

  bool isMedxing() const { return GetParam().name == "MEDXINGPort"; }
  Saying say(Random& random) const { return speakers.at(GetParam().name)(random); }

  void receive(ByteView bytes) {
    for (const auto& reply : framing->take(bytes)) framing->decode(reply, *decoder, *port.port());
  }

  /// In pieces of up to 62 bytes, as adapters make them, or of one.
  void receiveInPieces(ByteView bytes, Random& random) {
    while (!bytes.empty()) {
      const std::size_t size = std::min<std::size_t>(bytes.size(), 1 + random.below(62));
      receive(bytes.first(size));
      bytes = bytes.subspan(size);
    }
  }

  void renewDecoder() {
    decoder = GetParam().makeDevice();
    decoder->kiv_delegate = host;
  }

  void renew() {
    framing = GetParam().makeFraming();
    renewDecoder();
    host.takeCalls();
  }

  PrintedLines printed;
  ScriptedPort port;
  RecordingHost host;
  std::unique_ptr<ReplyFraming> framing = GetParam().makeFraming();
  std::shared_ptr<KivStressDevice> decoder = GetParam().makeDevice();
};

void append(RecordedCalls& calls, const RecordedCalls& more) {
  calls.insert(calls.end(), more.begin(), more.end());
}

TEST_P(Framing, BringsEveryReplyThroughAnyCutting) {
  for (unsigned seed = 0; seed < sessions; ++seed) {
    SCOPED_TRACE(seed);
    renew();
    Random random(seed);
    Bytes line;
    RecordedCalls expected;
    for (int i = 0; i < sayingsOfASession; ++i) {
      const Saying saying = say(random);
      line = joined(line, saying.bytes);
      append(expected, saying.heard);
    }
    // The length of its frames is learnt from the first three, and the last one waits for the next.
    if (isMedxing()) expected = {expected.begin() + 1, expected.end() - 1};
    receiveInPieces(line, random);
    EXPECT_EQ(host.takeCalls(), expected);
    EXPECT_EQ(framing->failedChecks(), 0U);
  }
}

/// Whether all of `calls` are among `heard`, in their order.
bool isSubsequence(const RecordedCalls& calls, const RecordedCalls& heard) {
  auto next = heard.begin();
  for (const auto& call : calls) {
    next = std::find(next, heard.end(), call);
    if (next == heard.end()) return false;
    ++next;
  }
  return true;
}

TEST_P(Framing, LosesOnlyTheRepliesThatLoseAByte) {
  for (unsigned seed = 0; seed < sessions; ++seed) {
    SCOPED_TRACE(seed);
    renew();
    Random random(seed);
    RecordedCalls intact;
    std::size_t hits = 0;
    for (int i = 0; i < sayingsOfASession; ++i) {
      Saying saying = say(random);
      const bool isHit = random.below(5) == 0;
      if (isHit) {
        ++hits;
        saying.bytes.erase(saying.bytes.begin() + random.below(static_cast<unsigned>(saying.bytes.size())));
      }
      // What is whole of a saying of several replies may still be heard.
      if (!isHit) append(intact, saying.heard);
      // As for each measurement of a pressure.
      renewDecoder();
      receiveInPieces(saying.bytes, random);
    }
    const auto heard = host.takeCalls();
    if (isMedxing()) {
      // A hit frame may cost its neighbours as well, but never gives another number.
      EXPECT_GE(heard.size() + 4 * hits + 2, intact.size());
      continue;
    }
    EXPECT_TRUE(isSubsequence(intact, heard))
        << testing::PrintToString(intact) << testing::PrintToString(heard);
    EXPECT_LE(heard.size(), intact.size() + hits);
  }
}

std::vector<DeviceModel> serialModels() {
  auto models = standardCatalogue().models();
  std::erase_if(models, [](const DeviceModel& model) { return !model.makeFraming; });
  return models;
}

INSTANTIATE_TEST_SUITE_P(Standard, Framing, testing::ValuesIn(serialModels()),
                         [](const auto& model) { return model.param.className; });

}  // namespace
}  // namespace tarsil
