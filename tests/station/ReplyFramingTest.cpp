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
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
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

/// What a device said and its host heard in one session on a bad line.
struct Session {
  RecordedCalls said;
  /// Of what no byte was hit.
  RecordedCalls intact;
  RecordedCalls heard;
  std::size_t hits = 0;
};

void append(RecordedCalls& calls, const RecordedCalls& more) {
  calls.insert(calls.end(), more.begin(), more.end());
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

class Framing : public testing::TestWithParam<DeviceModel> {
 protected:
  Framing() {
    decoder->kiv_delegate = host;
    StressECGDeviceManager::share().delegate = host;
  }
  ~Framing() override { StressECGDeviceManager::share().delegate = nullptr; }

  bool isMedxing() const { return GetParam().name == "MEDXINGPort"; }
  Saying say(Random& random) const {
    const auto speaker = speakers.find(GetParam().name);
    if (speaker == speakers.end()) throw std::invalid_argument("what does a " + GetParam().name + " say?");
    return speaker->second(random);
  }

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

  /// A session in which some sayings are hit. Never two in a row: the digit of one would stand in for the
  /// lost digit of the other, where there is no check.
  Session runWith(unsigned seed, const std::function<void(Bytes&, Random&)>& hit) {
    renew();
    Random random(seed);
    Session session;
    bool wasHit = false;
    for (int i = 0; i < sayingsOfASession; ++i) {
      Saying saying = say(random);
      append(session.said, saying.heard);
      wasHit = !wasHit && random.below(4) == 0;
      if (wasHit) {
        ++session.hits;
        hit(saying.bytes, random);
      } else {
        append(session.intact, saying.heard);
      }
      // As for each measurement of a pressure.
      renewDecoder();
      receiveInPieces(saying.bytes, random);
    }
    session.heard = host.takeCalls();
    return session;
  }

  PrintedLines printed;
  ScriptedPort port;
  RecordingHost host;
  std::unique_ptr<ReplyFraming> framing = GetParam().makeFraming();
  std::shared_ptr<KivStressDevice> decoder = GetParam().makeDevice();
};

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
    // The length of its frames is learnt from the first four, and the last one waits for the next.
    if (isMedxing()) expected = {expected.begin() + 2, expected.end() - 1};
    receiveInPieces(line, random);
    EXPECT_EQ(host.takeCalls(), expected);
    EXPECT_EQ(framing->failedChecks(), 0U);
  }
}

TEST_P(Framing, LosesOnlyTheRepliesThatLoseAByte) {
  for (unsigned seed = 0; seed < sessions; ++seed) {
    SCOPED_TRACE(seed);
    const Session session = runWith(seed, [](Bytes& bytes, Random& random) {
      bytes.erase(bytes.begin() + random.below(static_cast<unsigned>(bytes.size())));
    });
    if (isMedxing()) {
      // A hit frame may cost its neighbours as well, but never gives another number.
      EXPECT_TRUE(isSubsequence(session.heard, session.said));
      EXPECT_GE(session.heard.size() + 3 * session.hits + 2, session.intact.size());
      continue;
    }
    EXPECT_TRUE(isSubsequence(session.intact, session.heard));
    EXPECT_TRUE(isSubsequence(session.heard, session.said));
  }
}

TEST_P(Framing, FindsTheNextIntactReplyBehindAddedAndChangedBytes) {
  if (isMedxing()) return;  // whether its bytes were changed no reader can tell
  for (unsigned seed = 0; seed < sessions; ++seed) {
    SCOPED_TRACE(seed);
    const Session session = runWith(seed, [](Bytes& bytes, Random& random) {
      const auto at = bytes.begin() + random.below(static_cast<unsigned>(bytes.size()));
      if (random.below(2) == 0) {
        bytes.insert(at, random.byte());
      } else {
        *at = random.byte();
      }
    });
    EXPECT_TRUE(isSubsequence(session.intact, session.heard));
    // A reply that was hit may read as another one where its protocol has no check; a good check lets none
    // through.
    const bool isChecked = GetParam().name == "LodeTreadmill";
    if (isChecked) {
      EXPECT_TRUE(isSubsequence(session.heard, session.said));
    }
    EXPECT_LE(session.heard.size(), session.intact.size() + 2 * session.hits);
  }
}

TEST_P(Framing, CountsWhatBelongsToNoReply) {
  Random random(1);
  // Bytes that no reply of any model contains.
  const Bytes noise(300, 0x7F);
  receive(noise);
  const Saying saying = say(random);
  receive(saying.bytes);
  framing->reset();
  EXPECT_GE(framing->discardedBytes(), noise.size());
  EXPECT_LE(framing->discardedBytes(), noise.size() + saying.bytes.size());
  const auto discarded = framing->discardedBytes();
  framing->reset();
  EXPECT_EQ(framing->discardedBytes(), discarded);
}

TEST_P(Framing, ForgetsAnIncompleteReplyWithItsLine) {
  Random random(1);
  Saying saying = say(random);
  while (saying.bytes.size() == 1) saying = say(random);
  receive(ByteView(saying.bytes).first(saying.bytes.size() - 1));
  framing->reset();
  host.takeCalls();
  receive(ByteView(saying.bytes).last(1));
  EXPECT_THAT(host.takeCalls(), testing::IsEmpty());
}

class P10Framing : public Framing {};

TEST_P(P10Framing, KeepsPressuresOfTwoMeasurementsApart) {
  receive(text("U070\r"));
  receive(text("U080\rB100\r"));
  EXPECT_THAT(host.takeCalls(), testing::ElementsAre(ergometerPower(100)));
  receive(text("O120\r"));
  EXPECT_THAT(host.takeCalls(), testing::ElementsAre(bloodPressure(120, 80, 0)))
      << "the last diastolic counts";
  // Its diastolic was lost.
  receive(text("O130\rB100\r"));
  receive(text("U090\rB100\rO140\r"));
  EXPECT_THAT(host.takeCalls(),
              testing::ElementsAre(ergometerPower(100), ergometerPower(100), bloodPressure(140, 90, 0)));
}

TEST_P(P10Framing, NeedsThreeDigits) {
  receive(text("B12\rB1200\rn1x0\rB120"));
  EXPECT_THAT(host.takeCalls(), testing::IsEmpty());
  EXPECT_GT(framing->failedChecks(), 0U);
  receive(text("\r"));
  EXPECT_THAT(host.takeCalls(), testing::ElementsAre(ergometerPower(120)));
}

TEST_P(P10Framing, HandsOnALineThatIsNoFieldUnlessItHasLostItsBeginning) {
  using Reply = ReplyFraming::Reply;
  const Bytes longest = text("Version 1.23456\r");
  EXPECT_THAT(framing->take(longest), testing::ElementsAre(Reply{longest, ReplyFraming::Kind::other}));
  EXPECT_THAT(framing->take(text("XVersion 1.23456\r")), testing::IsEmpty());
  framing->reset();
  EXPECT_THAT(framing->take(text("Version\t1\r")), testing::IsEmpty());
}

// Start, set speed, set elevation, reset; "no session" and "emergency stop", the latter for the two that
// move.
TEST(LodeTreadmillFraming, TellsAStopAtTheMachineFromOtherRefusals) {
  const std::set<std::pair<int, int>> stopped{{0x01, 0x02}, {0x0B, 0x02}, {0x05, 0x02},
                                              {0x05, 0x08}, {0x07, 0x02}, {0x07, 0x08}};
  const auto framing = standardCatalogue().modelNamed("LodeTreadmill")->makeFraming();
  for (const int code : {0x01, 0x02, 0x03, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x41, 0x43}) {
    for (int status = 0; status <= 0x0A; ++status) {
      const auto replies = framing->take(
          simulators::acceptedReply(static_cast<std::uint8_t>(code), static_cast<std::uint8_t>(status), {}));
      ASSERT_EQ(replies.size(), 1U) << code << ' ' << status;
      EXPECT_EQ(replies[0].kind == ReplyFraming::Kind::stoppedAtMachine, stopped.contains({code, status}))
          << code << ' ' << status;
    }
  }
}

TEST(BPDeviceFraming, NeedsThreeDigitsInFrontOfTheLetter) {
  const auto framing = standardCatalogue().modelNamed("Tango")->makeFraming();
  EXPECT_THAT(framing->take(text("x01A\n\r+0120\n\r+0080\n\r+0072\n\r")), testing::IsEmpty());
  EXPECT_EQ(framing->take(text("001A\n\r+0120\n\r+0080\n\r+0072\n\r")).size(), 1U);
}

class MEDXINGFraming : public testing::TestWithParam<std::size_t> {};

// A frame's length is learnt from the marks of four.
TEST_P(MEDXINGFraming, LearnsEveryLengthThatAFrameMayHave) {
  Bytes frame{0xFF, 0xFE, 0x0A, 0x01, 0x23, 0x95, 0x00, 0x00, 97};
  frame.resize(GetParam());
  const auto framing = standardCatalogue().modelNamed("MEDXINGPort")->makeFraming();
  for (int frames = 0; frames < 3; ++frames) EXPECT_THAT(framing->take(frame), testing::IsEmpty());
  EXPECT_THAT(framing->take(frame),
              testing::ElementsAre(ReplyFraming::Reply{frame, ReplyFraming::Kind::saturation}));
}

INSTANTIATE_TEST_SUITE_P(Lengths, MEDXINGFraming, testing::Values(9, 10, 31, 32));

std::vector<DeviceModel> serialModels() {
  auto models = standardCatalogue().models();
  std::erase_if(models, [](const DeviceModel& model) { return !model.makeFraming; });
  return models;
}

INSTANTIATE_TEST_SUITE_P(Standard, Framing, testing::ValuesIn(serialModels()),
                         [](const auto& model) { return model.param.className; });
INSTANTIATE_TEST_SUITE_P(Standard, P10Framing,
                         testing::Values(*standardCatalogue().modelNamed("ErgolineK2.4P10"),
                                         *standardCatalogue().modelNamed("ErgosanaK4.8P10")),
                         [](const auto& model) { return model.param.className; });

}  // namespace
}  // namespace tarsil
