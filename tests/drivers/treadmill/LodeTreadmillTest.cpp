#include "tarsil/drivers/treadmill/LodeTreadmill.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "TreadmillTest.hpp"
#include "simulators/devices/acceptedReply.hpp"
#include "tarsil/support/hexText.hpp"

namespace tarsil {
namespace {

using simulators::acceptedReply;
using testing::ElementsAre;
using testing::IsEmpty;
using Command = LodeTreadmill::Command;

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float nan = std::numeric_limits<float>::quiet_NaN();

// Codes and statuses on the wire.
constexpr std::uint8_t START = 0x01;
constexpr std::uint8_t STATUS = 0x02;
constexpr std::uint8_t REAL_SPEED = 0x08;
constexpr std::uint8_t REAL_ELEVATION = 0x0A;
constexpr std::uint8_t BPM = 0x44;
constexpr std::uint8_t accepted = 0x80;

constexpr int commandCount = 21;

class LodeTreadmillTest : public TreadmillTest<LodeTreadmill> {
 protected:
  void reply(std::uint8_t command, std::uint8_t status, ByteView data = {}) {
    port.deliverByteByByte(acceptedReply(command, status, data));
  }
  void replyValue(std::uint8_t command, int value) {
    reply(command, accepted, Bytes{static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)});
  }

  /// Makes 5.0 km/h and 2.5 % known.
  void reportLoad() {
    replyValue(REAL_SPEED, 50);
    replyValue(REAL_ELEVATION, 25);
    host.takeCalls();
  }

  /// An accepted reply to a blood-pressure request of exactly that many bytes.
  static Bytes pressureReply(std::size_t size) {
    for (std::size_t dataSize = 0; dataSize < size; ++dataSize) {
      const Bytes bytes = acceptedReply(BPM, accepted, Bytes(dataSize, 0x11));
      if (bytes.size() == size) return bytes;
    }
    throw std::logic_error("no such reply");
  }
};

// Commands

TEST_F(LodeTreadmillTest, SendsItsCommands) {
  treadmill->startDeivce();
  treadmill->stopStressDevice();
  treadmill->startBP();
  treadmill->breakBP();
  treadmill->requestBP();
  treadmill->requestSpO2();
  EXPECT_THAT(port.sent(), ElementsAre(hex("02 01 00 A0 50 03"), hex("02 03 00 A1 30 03"),  //
                                       hex("02 41 00 91 90 03"), hex("02 43 00 90 F0 03"),
                                       hex("02 44 00 92 C0 03"), hex("02 0E 00 A5 A0 03")));
}

TEST_F(LodeTreadmillTest, NotesTheCommandSentLast) {
  EXPECT_EQ(treadmill->currentCommand, std::nullopt);
  treadmill->startDeivce();
  EXPECT_EQ(treadmill->currentCommand, Command::START);
  treadmill->stopStressDevice();
  EXPECT_EQ(treadmill->currentCommand, Command::STOP);
  treadmill->setLoad(5, 0);
  EXPECT_EQ(treadmill->currentCommand, Command::SET_ELEVATION);
  treadmill->requestLoad();
  EXPECT_EQ(treadmill->currentCommand, Command::REAL_ELEVATION);
  treadmill->startBP();
  EXPECT_EQ(treadmill->currentCommand, Command::START_BPM);
  treadmill->breakBP();
  EXPECT_EQ(treadmill->currentCommand, Command::ABORT_BPM);
  treadmill->requestBP();
  EXPECT_EQ(treadmill->currentCommand, Command::BPM);
  treadmill->requestSpO2();
  EXPECT_EQ(treadmill->currentCommand, Command::SPO2);
  treadmill->deviceState();
  EXPECT_EQ(treadmill->currentCommand, Command::STATUS);
}

TEST_F(LodeTreadmillTest, NotesEachCommandBeforeItIsSent) {
  std::vector<std::optional<Command>> noted;
  port.terminal().onWrite([&](const Bytes&) { noted.push_back(treadmill->currentCommand); });
  treadmill->startDeivce();
  treadmill->setLoad(5, 2.5F);
  treadmill->requestLoad();
  EXPECT_THAT(noted, ElementsAre(Command::START, Command::SET_SPEED, Command::SET_ELEVATION,
                                 Command::REAL_SPEED, Command::REAL_ELEVATION));
}

TEST_F(LodeTreadmillTest, ForgetsTheGradeBeforeItAsks) {
  treadmill->requestGrade = 25;
  std::vector<float> grades;
  port.terminal().onWrite([&](const Bytes&) { grades.push_back(treadmill->requestGrade); });
  treadmill->requestLoad();
  EXPECT_THAT(grades, ElementsAre(-1.0F, -1.0F));
}

TEST_F(LodeTreadmillTest, AsksForItsState) {
  treadmill->deviceState();
  EXPECT_TRUE(treadmill->isState);
  EXPECT_THAT(port.sent(), ElementsAre(hex("02 02 00 A0 A0 03")));
}

TEST_F(LodeTreadmillTest, AsksForSpeedAndGradeBackToBack) {
  treadmill->requestSpeed = 50;
  treadmill->requestGrade = 25;
  treadmill->requestLoad();
  EXPECT_THAT(port.sent(), ElementsAre(hex("02 08 00 A6 00 03"), hex("02 0A 00 A7 60 03")));
  EXPECT_EQ(treadmill->requestGrade, -1.0F);
  EXPECT_EQ(treadmill->requestSpeed, 50.0F) << "the speed is never forgotten";
}

TEST_F(LodeTreadmillTest, SendsSpeedThenGradeInTenths) {
  treadmill->setLoad(5.0F, 2.5F);
  EXPECT_THAT(port.sent(), ElementsAre(hex("02 05 02 00 32 59 19 03"), hex("02 07 02 00 19 18 BE 03")));
}

TEST_F(LodeTreadmillTest, TruncatesTowardZero) {
  for (const float almostNothing : {0.05F, -0.05F, -0.0F, 0.0F, std::numeric_limits<float>::denorm_min()}) {
    SCOPED_TRACE(almostNothing);
    treadmill->setLoad(almostNothing, almostNothing);
    EXPECT_THAT(port.takeSent(), ElementsAre(hex("02 05 02 00 00 D8 CC 03"), hex("02 07 02 00 00 D9 74 03")));
  }
}

// In double precision 0.7 would give 6 tenths.
TEST_F(LodeTreadmillTest, MultipliesInSinglePrecision) {
  treadmill->setLoad(0.7F, 0.7F);
  EXPECT_THAT(port.sent(), ElementsAre(hex("02 05 02 00 07 99 0E 03"), hex("02 07 02 00 07 98 B6 03")));
}

TEST_F(LodeTreadmillTest, FitsTheLargestByte) {
  treadmill->setLoad(25.5F, 25.5F);
  EXPECT_THAT(port.sent(), ElementsAre(hex("02 05 02 00 FF 98 8C 03"), hex("02 07 02 00 FF 99 34 03")));
}

// The third digit is left out of the check, and shifts the frame by half a byte.
TEST_F(LodeTreadmillTest, SendsAGarbledFrameAboveTheLargestByte) {
  treadmill->setLoad(25.6F, 25.6F);
  EXPECT_THAT(port.sent(), ElementsAre(hex("00 20 50 20 01 00 10 D9 03"), hex("00 20 70 20 01 00 B1 19 03")));
}

TEST_F(LodeTreadmillTest, SendsAGarbledFrameBelowZero) {
  treadmill->setLoad(-0.1F, -1.5F);
  EXPECT_THAT(port.takeSent(), ElementsAre(hex("02 05 02 00 00 19 0C 03"), hex("02 07 02 00 00 99 70 03")));
  treadmill->setLoad(-1.6F, -16.0F);
  EXPECT_THAT(port.takeSent(),
              ElementsAre(hex("00 20 50 20 00 10 10 D9 03"), hex("00 20 70 20 00 A0 B1 19 03")));
}

TEST_F(LodeTreadmillTest, SendsWhateverFitsSixtyFourBits) {
  treadmill->setLoad(std::nextafter(0x1p63F / 10, 0.0F), -0x1p63F / 10);
  const auto sent = port.sent();
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_EQ(sent[0], hex("02 05 02 00 7F FF FF 80 00 00 00 00 10 D9 03"));
  EXPECT_EQ(sent[1], hex("00 20 70 20 00 80 00 00 00 00 00 00 00 B1 19 03"));
}

TEST_F(LodeTreadmillTest, StopsOnALoadThatIsNoInteger) {
  for (const float impossible : {nan, infinity, -infinity, 1e18F, -1e18F, 0x1p63F / 10}) {
    SCOPED_TRACE(impossible);
    EXPECT_DEATH(treadmill->setLoad(impossible, 0), "fatal error: ten times the speed in km/h does not fit");
    EXPECT_DEATH(treadmill->setLoad(0, impossible),
                 "fatal error: ten times the grade in percent does not fit");
  }
}

TEST_F(LodeTreadmillTest, ConvertsBothValuesBeforeItSends) {
  EXPECT_DEATH(
      {
        port.terminal().onWrite([](const Bytes&) { std::_Exit(1); });
        treadmill->setLoad(5, nan);
      },
      "fatal error: ten times the grade");
  treadmill->setSerialPort(nullptr);
  EXPECT_DEATH(treadmill->setLoad(nan, 0), "fatal error: ten times the speed");
}

TEST_F(LodeTreadmillTest, DropsEveryCommandWithoutAPort) {
  treadmill->setSerialPort(nullptr);
  treadmill->startDeivce();
  treadmill->setLoad(5, 2.5F);
  treadmill->requestLoad();
  treadmill->deviceState();
  EXPECT_THAT(port.sent(), IsEmpty());
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_EQ(treadmill->currentCommand, Command::STATUS) << "the command is noted all the same";
  EXPECT_TRUE(treadmill->isState);
}

TEST_F(LodeTreadmillTest, DropsCommandsWhileThePortIsClosed) {
  port.close();
  treadmill->startDeivce();
  EXPECT_THAT(port.sent(), IsEmpty());
  EXPECT_THAT(printed.diagnostic(), IsEmpty());
}

// Codes

TEST(LodeTreadmillCommand, HasACodeForEveryCase) {
  const std::vector<std::string_view> codes = {"00", "01", "03", "05", "07", "09", "0B",
                                               "41", "43", "02", "04", "06", "08", "0A",
                                               "42", "44", "0C", "0E", "10", "22", "24"};
  ASSERT_EQ(codes.size(), commandCount);
  for (int i = 0; i < commandCount; ++i) {
    const auto command = static_cast<Command>(i);
    EXPECT_EQ(LodeTreadmill::rawValue(command), codes[static_cast<std::size_t>(i)]);
    EXPECT_EQ(LodeTreadmill::commandFromRawValue(codes[static_cast<std::size_t>(i)]), command);
  }
  EXPECT_EQ(static_cast<int>(Command::MIN_MAX_ELEVATION), commandCount - 1);
}

TEST(LodeTreadmillCommand, IsNotMadeFromAnotherText) {
  for (const auto* text : {"", "0", "0a", "0b", "FF", "001", " 1", "START"})
    EXPECT_EQ(LodeTreadmill::commandFromRawValue(text), std::nullopt) << text;
}

// Replies

TEST_F(LodeTreadmillTest, ReportsALoadOnlyWhenBothHalvesAreKnown) {
  treadmill->requestLoad();
  replyValue(REAL_SPEED, 50);
  EXPECT_THAT(host.calls(), IsEmpty());
  replyValue(REAL_ELEVATION, 25);
  EXPECT_THAT(host.calls(), ElementsAre(treadmillLoad(50.0F, 25.0F)));
  EXPECT_EQ(treadmill->result.count(), 0U);
}

TEST_F(LodeTreadmillTest, ReadsSixteenBits) {
  replyValue(REAL_ELEVATION, 0xFFFF);
  replyValue(REAL_SPEED, 0x0123);
  EXPECT_THAT(host.calls(), ElementsAre(treadmillLoad(291.0F, 65535.0F)));
}

TEST_F(LodeTreadmillTest, RepeatsTheLoadWithEveryAcceptedReply) {
  reportLoad();
  reply(START, accepted);
  reply(STATUS, accepted);
  EXPECT_THAT(host.takeCalls(), ElementsAre(treadmillLoad(50, 25), treadmillLoad(50, 25)));
  replyValue(REAL_SPEED, 60);
  EXPECT_THAT(host.takeCalls(), ElementsAre(treadmillLoad(60, 25)));
  EXPECT_EQ(treadmill->result.count(), 0U);
}

// A host may ask for the next load from within the report: what it does then must not be undone.
TEST_F(LodeTreadmillTest, EmptiesALoadReplyBeforeTheHostHearsOfItAndOthersAfterwards) {
  replyValue(REAL_SPEED, 50);
  std::vector<std::size_t> entries;
  host.onCall([&](const RecordedCall&) { entries.push_back(treadmill->result.count()); });
  replyValue(REAL_ELEVATION, 25);
  const Bytes acknowledgement = acceptedReply(START, accepted, {});
  port.deliverByteByByte(acknowledgement);
  EXPECT_THAT(entries, ElementsAre(0U, acknowledgement.size()));
  EXPECT_EQ(treadmill->result.count(), 0U);
}

TEST_F(LodeTreadmillTest, LetsTheHostDropItWithinAReport) {
  reportLoad();
  const std::weak_ptr<LodeTreadmill> dropped = treadmill;
  host.onCall([&](const RecordedCall&) { treadmill.reset(); });
  reply(START, accepted);
  EXPECT_THAT(host.calls(), ElementsAre(treadmillLoad(50, 25)));
  EXPECT_TRUE(dropped.expired());
}

TEST_F(LodeTreadmillTest, WaitsForANewGradeThatTheHostAsksForWithinTheReport) {
  replyValue(REAL_SPEED, 50);
  host.onCall([&](const RecordedCall&) { treadmill->requestLoad(); });
  replyValue(REAL_ELEVATION, 25);
  EXPECT_THAT(host.takeCalls(), ElementsAre(treadmillLoad(50, 25)));
  EXPECT_EQ(treadmill->requestGrade, -1.0F);
  reply(START, accepted);
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(LodeTreadmillTest, WaitsForANewGradeAfterALoadRequest) {
  reportLoad();
  treadmill->requestLoad();
  reply(START, accepted);
  replyValue(REAL_SPEED, 60);
  EXPECT_THAT(host.calls(), IsEmpty());
  replyValue(REAL_ELEVATION, 30);
  EXPECT_THAT(host.calls(), ElementsAre(treadmillLoad(60, 30)));
}

TEST_F(LodeTreadmillTest, TreatsAReadyStateAsAnError) {
  treadmill->deviceState();
  reply(STATUS, 0x01);
  EXPECT_THAT(host.calls(), ElementsAre(error("01", "")));
  EXPECT_TRUE(treadmill->isState) << "nothing clears it";
}

TEST_F(LodeTreadmillTest, CallsOnlyWhatTheHostAnswers) {
  host.answerOnly({});
  reportLoad();
  reply(START, 0x01);
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_EQ(treadmill->requestSpeed, 50.0F);
  treadmill->kiv_delegate = nullptr;
  reply(START, 0x01);
  reply(START, accepted);
  EXPECT_EQ(treadmill->result.count(), 0U);
}

TEST_F(LodeTreadmillTest, NeedsSixEntries) {
  // The check of nothing but zeros is 00 00; the code of the reply is then 00.
  const Bytes zeros(5, 0);
  port.deliverByteByByte(zeros);
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_EQ(treadmill->result.count(), 5U);
  port.deliver(hex("00"));
  EXPECT_THAT(host.calls(), ElementsAre(error("00", "")));
  EXPECT_EQ(treadmill->result.count(), 0U);
}

TEST_F(LodeTreadmillTest, KeepsAReplyThatFailsItsCheck) {
  port.deliverByteByByte(hex("02 08 80 02 00 32 12 34"));
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_EQ(treadmill->result.count(), 8U);
  replyValue(REAL_SPEED, 50);
  EXPECT_GT(treadmill->result.count(), 8U) << "the next reply is appended to it";
}

TEST_F(LodeTreadmillTest, ReadsNothingFromAReplyInOneChunk) {
  for (int i = 0; i < 10; ++i) port.deliver(acceptedReply(REAL_SPEED, accepted, Bytes{0, 50}));
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_EQ(treadmill->result.count(), 10U);
  EXPECT_EQ(treadmill->requestSpeed, -1.0F);
}

// The value is entries 4 and 5, here 00 and 01 02; the check is over the entries of one byte, its own low
// byte included.
TEST_F(LodeTreadmillTest, TakesALongChunkForOneEntryOutsideTheCheck) {
  port.deliverByteByByte(hex("02 08 80 03 00"));
  port.deliver(hex("01 02"));
  port.deliverByteByByte(hex("00 63"));
  EXPECT_EQ(treadmill->requestSpeed, -1.0F);
  port.deliver(hex("3B"));
  EXPECT_EQ(treadmill->requestSpeed, 258.0F);
  EXPECT_EQ(treadmill->result.count(), 0U);
}

TEST_F(LodeTreadmillTest, LeavesABloodPressureReplyInFront) {
  const Bytes pressure = pressureReply(14);
  port.deliverByteByByte(pressure);
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_EQ(treadmill->result.count(), 14U);
  port.deliver(hex("00"));
  EXPECT_EQ(treadmill->result.count(), 15U);
}

TEST_F(LodeTreadmillTest, RepeatsTheLoadWithABloodPressureReply) {
  reportLoad();
  port.deliverByteByByte(pressureReply(16));
  EXPECT_THAT(host.calls(), ElementsAre(treadmillLoad(50, 25)));
  EXPECT_EQ(treadmill->result.count(), 16U);
}

TEST_F(LodeTreadmillTest, StopsOnABloodPressureReplyOfFifteenEntries) {
  EXPECT_DEATH(port.deliverByteByByte(pressureReply(15)),
               "fatal error: Lode treadmill: a blood-pressure reply of fifteen entries cannot be read");
}

TEST_F(LodeTreadmillTest, RepeatsTheLoadBeforeItStopsOnABloodPressureReply) {
  reportLoad();
  EXPECT_DEATH(
      {
        host.onCall([](const RecordedCall& call) { std::fprintf(stderr, "%s first\n", call.text.c_str()); });
        port.deliverByteByByte(pressureReply(15));
      },
      "treadmillLoad.*first\n.*fatal error");
}

// Errors

struct ErrorText {
  Command command;
  const char* status;
  const char* message;
};

const std::vector<ErrorText>& errorTexts() {
  static const std::vector<ErrorText> texts = {
      {Command::START, "01", "treadmill could not be started, there is an error"},
      {Command::START, "02", "treadmill could not be started, emergency stop active"},
      {Command::START, "03", "treadmill could not be started, other issue"},
      {Command::STOP, "01", "there is an error"},
      {Command::STOP, "02", "other issue"},
      {Command::SET_SPEED, "01", "treadmill could not set target, there is an error"},
      {Command::SET_SPEED, "02", "treadmill could not set target, no session active"},
      {Command::SET_SPEED, "04", "treadmill could not set speed target, out of range"},
      {Command::SET_SPEED, "08", "treadmill could not set speed, emergency stop active"},
      {Command::SET_ELEVATION, "01", "treadmill could not set targets, there is an error"},
      {Command::SET_ELEVATION, "02", "treadmill could not set targets, no session active"},
      {Command::SET_ELEVATION, "04", "treadmill could not set elevation target, out of range"},
      {Command::SET_ELEVATION, "08", "treadmill could not set elevation, emergency stop active"},
      {Command::TRIGGER_STOP, "01", "reset emergency stop state could not be issued, there is an error"},
      {Command::RESET, "01", "reset emergency stop state could not be issued, there is an error"},
      {Command::RESET, "02", "reset emergency stop state could not be issued, emergency stop circuit open"},
      {Command::RESET, "03", "reset emergency stop state could not be issued, other issue"},
      {Command::START_BPM, "01", "blood pressure measurement could not be started, there is an error"},
      {Command::START_BPM, "02", "blood pressure measurement could not be started, option not available"},
      {Command::ABORT_BPM, "01", "blood pressure measurement could not be aborted, there is an error"},
      {Command::ABORT_BPM, "02", "blood pressure measurement could not be aborted, option not available"},
  };
  return texts;
}

std::string expectedText(std::optional<Command> command, const std::string& status) {
  if (!command) return "";
  const int index = static_cast<int>(*command);
  if (status == "40" && index >= 1 && index <= 8) return "treadmill not in terminal mode";
  for (const auto& text : errorTexts()) {
    if (text.command == *command && text.status == status) return text.message;
  }
  return "";
}

// Every command with every status that any of them knows, and some that none does.
TEST_F(LodeTreadmillTest, ReportsErrorsInTheWordsOfTheCommandSentLast) {
  std::vector<std::optional<Command>> commands = {std::nullopt};
  for (int i = 0; i < commandCount; ++i) commands.push_back(static_cast<Command>(i));
  std::set<std::string> texts;
  for (const auto& command : commands) {
    for (const std::uint8_t status : hex("00 01 02 03 04 08 10 40 7F 81 FF")) {
      SCOPED_TRACE(hexText(Bytes{status}));
      treadmill->currentCommand = command;
      const std::string code = upperHexText(Bytes{status});
      reply(START, status);
      EXPECT_THAT(host.takeCalls(), ElementsAre(error(code, expectedText(command, code))));
      EXPECT_EQ(treadmill->result.count(), 0U);
      texts.insert(expectedText(command, code));
    }
  }
  EXPECT_EQ(texts.size(), 22U) << "21 texts, of which two are the same, one for the terminal mode, and none";
}

TEST_F(LodeTreadmillTest, BlamesTheGradeForARefusedSpeed) {
  treadmill->setLoad(5, 2.5F);
  reply(0x05, 0x04);
  EXPECT_THAT(host.calls(),
              ElementsAre(error("04", "treadmill could not set elevation target, out of range")));
}

TEST_F(LodeTreadmillTest, RepeatsNoLoadWithAnError) {
  reportLoad();
  reply(START, 0x02);
  EXPECT_THAT(host.calls(), ElementsAre(error("02", "")));
}

TEST_F(LodeTreadmillTest, EmptiesTheReplyBeforeTheHostHearsOfTheError) {
  std::optional<std::size_t> entries;
  host.onCall([&](const RecordedCall&) { entries = treadmill->result.count(); });
  reply(START, 0x02);
  EXPECT_EQ(entries, 0U);
}

}  // namespace
}  // namespace tarsil
