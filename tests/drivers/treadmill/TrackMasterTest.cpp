#include "tarsil/drivers/treadmill/TrackMaster.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "TreadmillTest.hpp"
#include "tarsil/log/FileManagerTool.hpp"
#include "tarsil/support/process.hpp"
#include "tests/helpers/TemporaryUserFolders.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float nan = std::numeric_limits<float>::quiet_NaN();

/// All devices write to one log, open until the process ends: its folder stays as long.
const TemporaryUserFolders& folders() {
  static const TemporaryUserFolders folders;
  return folders;
}

/// What the log's file holds by now, without what is still buffered.
std::string logFile() {
  return contentsOf(FileManagerTool::share().getRootPath());
}

class TrackMasterTest : public TreadmillTest<TrackMaster> {
 protected:
  TrackMasterTest() {
    folders();
    FileManagerTool::share().fileFlush();
    logSizeBefore_ = logFile().size();
  }

  ~TrackMasterTest() override {
    for (const auto& timer : {treadmill->timer, treadmill->fileTimer}) {
      if (timer) timer->invalidate();
    }
    // It belongs to this test's clock.
    FileManagerTool::share().clearTimer();
  }

  /// The texts of the records that reached the file since the test began.
  Texts flushedRecords() const {
    std::istringstream lines(logFile().substr(logSizeBefore_));
    Texts texts;
    for (std::string line; std::getline(lines, line);) {
      const std::size_t arrow = line.find("->");
      if (arrow != std::string::npos) texts.push_back(line.substr(arrow + 2));
    }
    return texts;
  }
  Texts records() const {
    FileManagerTool::share().fileFlush();
    return flushedRecords();
  }

  static Bytes loadReply(const std::string& speed, const std::string& grade) {
    Bytes bytes = hex("D1");
    for (const char digit : speed) bytes.push_back(static_cast<std::uint8_t>(digit));
    bytes.push_back(0xD2);
    for (const char digit : grade) bytes.push_back(static_cast<std::uint8_t>(digit));
    return bytes;
  }
  void standStill() { port.deliver(loadReply("0000", "0000")); }

  std::vector<Bytes> sentSpeed(float kmph) {
    treadmill->setLoad(kmph, 0);
    auto sent = port.takeSent();
    EXPECT_FALSE(sent.empty());
    EXPECT_EQ(sent.back(), hex("A4 30 30 30 30"));
    sent.pop_back();
    return sent;
  }
  std::vector<Bytes> sentGrade(float percent) {
    treadmill->setLoad(0, percent);
    auto sent = port.takeSent();
    EXPECT_FALSE(sent.empty());
    EXPECT_EQ(sent.front(), hex("A3 30 30 30"));
    sent.erase(sent.begin());
    return sent;
  }

  const Bytes C1 = hex("C1");
  const Bytes C2 = hex("C2");
  const Bytes A2 = hex("A2");

 private:
  std::size_t logSizeBefore_ = 0;
};

// Commands

TEST_F(TrackMasterTest, IsMadeAtRest) {
  EXPECT_EQ(treadmill->result, "");
  EXPECT_TRUE(treadmill->isSpeed);
  EXPECT_FALSE(treadmill->isStop);
  EXPECT_FALSE(treadmill->isStaticState);
  EXPECT_EQ(treadmill->beforDate, std::nullopt);
  EXPECT_EQ(treadmill->timer, nullptr);
  EXPECT_FALSE(treadmill->isBegin);
  EXPECT_EQ(treadmill->fileTimer, nullptr);
}

TEST_F(TrackMasterTest, Starts) {
  treadmill->startDeivce();
  EXPECT_THAT(port.sent(), ElementsAre(hex("A1")));
}

TEST_F(TrackMasterTest, SendsSpeedThenGrade) {
  treadmill->setLoad(5.0F, 2.5F);
  EXPECT_THAT(port.sent(), ElementsAre(hex("A3 30 33 31"), hex("A4 30 30 32 30")));
  EXPECT_THAT(records(), ElementsAre("setSpeed:5.0,grade:2.5"));
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(TrackMasterTest, SendsTheSpeedInTenthsOfMilesPerHour) {
  EXPECT_THAT(sentSpeed(0), ElementsAre(hex("A3 30 30 30")));
  EXPECT_THAT(sentSpeed(0.7F), ElementsAre(hex("A3 30 30 34")));
  EXPECT_THAT(sentSpeed(1.6F), ElementsAre(hex("A3 30 31 30")));
  EXPECT_THAT(sentSpeed(2.8F), ElementsAre(hex("A3 30 31 38"))) << "1.75 in single precision: half to even";
  EXPECT_THAT(sentSpeed(5.0F), ElementsAre(hex("A3 30 33 31")));
  EXPECT_THAT(sentSpeed(16.0F), ElementsAre(hex("A3 31 30 30")));
  EXPECT_THAT(sentSpeed(19.0F), ElementsAre(hex("A3 31 31 39")));
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(TrackMasterTest, RefusesASpeedBeyondItsLimits) {
  for (const float refused : {std::numeric_limits<float>::denorm_min(), 0.5F, std::nextafter(0.7F, 0.0F),
                              std::nextafter(19.0F, 20.0F), 19.1F, 1e30F, infinity}) {
    SCOPED_TRACE(refused);
    EXPECT_THAT(sentSpeed(refused), IsEmpty());
    EXPECT_THAT(host.takeCalls(), ElementsAre(error("01", "Power Beyond the limit")));
  }
}

TEST_F(TrackMasterTest, SendsWhatTheTextOfANegativeSpeedGives) {
  EXPECT_THAT(sentSpeed(-0.0F), ElementsAre(hex("A3 03 30 30")));
  EXPECT_THAT(sentSpeed(-1.0F), ElementsAre(hex("A3 03 30 36")));
  EXPECT_THAT(sentSpeed(-16.0F), ElementsAre(hex("A3 03 31 30")));
  EXPECT_THAT(sentSpeed(-std::numeric_limits<float>::max()), ElementsAre(hex("A3 03 32 30")));
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(TrackMasterTest, SendsTheGradeInWholePercents) {
  EXPECT_THAT(sentGrade(0), ElementsAre(hex("A4 30 30 30 30")));
  EXPECT_THAT(sentGrade(0.5F), ElementsAre(hex("A4 30 30 30 30")));
  EXPECT_THAT(sentGrade(1.0F), ElementsAre(hex("A4 30 30 31 30")));
  EXPECT_THAT(sentGrade(2.5F), ElementsAre(hex("A4 30 30 32 30")));
  EXPECT_THAT(sentGrade(25.0F), ElementsAre(hex("A4 30 32 35 30")));
  EXPECT_THAT(sentGrade(25.9F), ElementsAre(hex("A4 30 32 35 30")));
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(TrackMasterTest, RefusesAGradeBeyondItsLimits) {
  for (const float refused : {std::numeric_limits<float>::denorm_min(), 0.4F, std::nextafter(0.5F, 0.0F),
                              26.0F, 1000.0F, 0x1p59F}) {
    SCOPED_TRACE(refused);
    EXPECT_THAT(sentGrade(refused), IsEmpty());
    EXPECT_THAT(host.takeCalls(), ElementsAre(error("01", "Grade Beyond the limit")));
  }
}

TEST_F(TrackMasterTest, SendsWhatTheTextOfANegativeGradeGives) {
  EXPECT_THAT(sentGrade(-0.0F), ElementsAre(hex("A4 30 30 30 30")));
  EXPECT_THAT(sentGrade(-0.4F), ElementsAre(hex("A4 30 30 30 30")));
  EXPECT_THAT(sentGrade(-5.0F), ElementsAre(hex("A4 30 03 35 30")));
  EXPECT_THAT(sentGrade(-25.0F), ElementsAre(hex("A4 03 32 35 30")));
  EXPECT_THAT(sentGrade(-1000.0F), ElementsAre(hex("A4 30 30 30 30")));
}

TEST_F(TrackMasterTest, RefusesOneHalfAndSendsTheOther) {
  treadmill->setLoad(20, 30);
  EXPECT_THAT(port.takeSent(), IsEmpty());
  EXPECT_THAT(host.takeCalls(),
              ElementsAre(error("01", "Power Beyond the limit"), error("01", "Grade Beyond the limit")));
  treadmill->setLoad(20, 5);
  EXPECT_THAT(port.takeSent(), ElementsAre(hex("A4 30 30 35 30")));
}

TEST_F(TrackMasterTest, StopsWhenTheHostAnswersARefusedSpeedWithAStop) {
  host.onCall([&](const RecordedCall&) { treadmill->stopStressDevice(); });
  treadmill->setLoad(20, 5);
  EXPECT_TRUE(treadmill->isStop);
  EXPECT_THAT(port.takeSent(), ElementsAre(hex("A3 30 30 30"), hex("A4 30 30 30 30"), hex("A4 30 30 35 30")));
  port.advance(1s);
  EXPECT_THAT(port.takeSent(), ElementsAre(C1, C2));
}

TEST_F(TrackMasterTest, StopsOnASpeedThatIsNoNumber) {
  EXPECT_DEATH(treadmill->setLoad(nan, 0), "fatal error: TrackMaster: the speed is no number: nan");
  EXPECT_DEATH(treadmill->setLoad(-infinity, 0), "fatal error: TrackMaster: the speed is no number: -inf");
  treadmill->setSerialPort(nullptr);
  EXPECT_DEATH(treadmill->setLoad(nan, 0), "fatal error: TrackMaster: the speed is no number: nan");
}

TEST_F(TrackMasterTest, StopsOnAGradeThatIsNoInteger) {
  for (const float impossible : {nan, infinity, -infinity, 1e19F, -1e19F}) {
    SCOPED_TRACE(impossible);
    EXPECT_DEATH(treadmill->setLoad(0, impossible),
                 "fatal error: TrackMaster: the grade in percent does not fit a 64-bit integer");
  }
  for (const float tooLarge : {1e18F, -1e18F}) {
    EXPECT_DEATH(treadmill->setLoad(0, tooLarge),
                 "fatal error: TrackMaster: ten times the grade does not fit a 64-bit integer");
  }
  treadmill->setSerialPort(nullptr);
  EXPECT_DEATH(treadmill->setLoad(0, nan), "fatal error: TrackMaster: the grade in percent does not fit");
}

TEST_F(TrackMasterTest, DropsCommandsWithoutAPort) {
  treadmill->setSerialPort(nullptr);
  treadmill->startDeivce();
  treadmill->setLoad(5, 2.5F);
  treadmill->requestLoad();
  treadmill->stopStressDevice();
  port.advance(3s);
  EXPECT_THAT(port.sent(), IsEmpty());
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_THAT(records(), ElementsAre("setSpeed:5.0,grade:2.5", "---requestLode---"));
  treadmill->setLoad(50, 0);
  EXPECT_THAT(host.calls(), ElementsAre(error("01", "Power Beyond the limit")));
}

TEST_F(TrackMasterTest, HasNoBloodPressureNorSaturation) {
  treadmill->startBP();
  treadmill->breakBP();
  treadmill->requestBP();
  treadmill->requestSpO2();
  EXPECT_THAT(port.sent(), IsEmpty());
}

// Load requests

TEST_F(TrackMasterTest, AsksForSpeedAndGrade) {
  treadmill->requestSpeed = 5;
  treadmill->requestGrade = 2;
  treadmill->requestLoad();
  EXPECT_THAT(port.sent(), ElementsAre(C1, C2));
  EXPECT_EQ(treadmill->requestSpeed, -1.0F);
  EXPECT_EQ(treadmill->requestGrade, -1.0F);
  EXPECT_THAT(records(), ElementsAre("---requestLode---"));
}

TEST_F(TrackMasterTest, AsksAtMostEveryEightTenthsOfASecond) {
  treadmill->requestLoad();
  port.takeSent();
  port.advance(500ms);
  treadmill->requestLoad();
  port.advance(299ms);
  treadmill->requestLoad();
  EXPECT_THAT(port.takeSent(), IsEmpty());
  port.advance(1ms);
  treadmill->requestLoad();
  EXPECT_THAT(port.takeSent(), ElementsAre(C1, C2));
  // Counted from the last request that was sent, not from the last one made.
  port.advance(799ms);
  treadmill->requestLoad();
  EXPECT_THAT(port.takeSent(), IsEmpty());
  port.advance(1ms);
  treadmill->requestLoad();
  EXPECT_THAT(port.takeSent(), ElementsAre(C1, C2));
}

TEST_F(TrackMasterTest, AsksForItsStateWithALoadRequest) {
  treadmill->deviceState();
  EXPECT_TRUE(treadmill->isState);
  EXPECT_THAT(port.takeSent(), ElementsAre(C1, C2));
  treadmill->isState = false;
  treadmill->deviceState();
  EXPECT_TRUE(treadmill->isState);
  EXPECT_THAT(port.takeSent(), IsEmpty());
}

TEST_F(TrackMasterTest, NotesTheStateQuestionAndForgetsTheLoadBeforeItAsks) {
  treadmill->requestSpeed = 5;
  treadmill->requestGrade = 2;
  int writes = 0;
  port.terminal().onWrite([&](const Bytes&) {
    ++writes;
    EXPECT_TRUE(treadmill->isState);
    EXPECT_EQ(treadmill->requestSpeed, -1.0F);
    EXPECT_EQ(treadmill->requestGrade, -1.0F);
  });
  treadmill->deviceState();
  EXPECT_EQ(writes, 2);
}

// Replies

TEST_F(TrackMasterTest, PassesOnAnAcknowledgement) {
  for (const auto* code : {"B1", "B2", "B3", "B4"}) port.deliver(hex(code));
  EXPECT_THAT(host.calls(), ElementsAre(successfully(), successfully(), successfully(), successfully()));
  EXPECT_EQ(treadmill->result, "");
  EXPECT_THAT(records(), ElementsAre("jointDeviceResult:B1", "jointDeviceResult:B2", "jointDeviceResult:B3",
                                     "jointDeviceResult:B4"));
}

TEST_F(TrackMasterTest, ReadsOneReplyAChunk) {
  port.deliver(hex("B1 B2"));
  EXPECT_THAT(host.takeCalls(), ElementsAre(successfully()));
  EXPECT_EQ(treadmill->result, "B2");
  port.deliver(hex("BE"));
  EXPECT_THAT(host.takeCalls(), ElementsAre(successfully()));
  EXPECT_EQ(treadmill->result, "BE");
}

TEST_F(TrackMasterTest, DropsAReplyAfterTheHostHasHeardOfIt) {
  Texts results;
  host.onCall([&](const RecordedCall&) { results.push_back(treadmill->result); });
  port.deliver(hex("B1"));
  port.deliver(hex("BF"));
  treadmill->deviceState();
  port.deliver(hex("BE"));
  EXPECT_THAT(results, ElementsAre("B1", "BF", "BE", "BE"));
  EXPECT_EQ(treadmill->result, "");
}

TEST_F(TrackMasterTest, LetsTheHostDropItWithinAReport) {
  const std::weak_ptr<TrackMaster> dropped = treadmill;
  host.onCall([&](const RecordedCall&) { treadmill = std::make_shared<TrackMaster>(); });
  port.deliver(hex("BE"));
  EXPECT_THAT(host.calls(), ElementsAre(error("00", "Beyond the limit")));
  EXPECT_TRUE(dropped.expired());
}

TEST_F(TrackMasterTest, DropsALoadBeforeTheHostHearsOfIt) {
  Texts results;
  host.onCall([&](const RecordedCall&) { results.push_back(treadmill->result); });
  port.deliver(loadReply("0031", "0025"));
  EXPECT_THAT(results, ElementsAre(""));
}

TEST_F(TrackMasterTest, LeavesAnIncompleteReplyBehindAnAcknowledgement) {
  port.deliver(hex("B1 D1 30 30 33 30 30 32"));
  EXPECT_THAT(host.calls(), ElementsAre(successfully()));
  EXPECT_EQ(treadmill->result, "D1303033303032");
}

TEST_F(TrackMasterTest, ReportsRefusals) {
  port.deliver(hex("BE"));
  port.deliver(hex("BF"));
  EXPECT_THAT(host.calls(), ElementsAre(error("00", "Beyond the limit"), error("00", "disable instruction")));
  EXPECT_EQ(treadmill->result, "");
}

TEST_F(TrackMasterTest, IsNotReadyWhenItRefuses) {
  treadmill->deviceState();
  port.deliver(hex("BE"));
  port.deliver(hex("BF"));
  EXPECT_THAT(host.calls(), ElementsAre(deviceIsReady(false), error("00", "Beyond the limit"),
                                        deviceIsReady(false), error("00", "disable instruction")));
  EXPECT_TRUE(treadmill->isState);
}

TEST_F(TrackMasterTest, ReportsSpeedAndGradeTogether) {
  port.deliver(loadReply("0031", "0025"));
  EXPECT_THAT(host.calls(), ElementsAre(treadmillLoad(5.0F, 2.5F)));
  EXPECT_EQ(treadmill->result, "");
  EXPECT_EQ(treadmill->requestSpeed, 5.0F) << "rounded from 4.96";
  EXPECT_THAT(records(),
              ElementsAre("jointDeviceResult:D130303331D230303235", "sendDelegateSpeed:5.0 grade:2.5"));
}

TEST_F(TrackMasterTest, ReportsTheSameByteByByte) {
  port.deliverByteByByte(loadReply("0100", "0000"));
  EXPECT_THAT(host.calls(), ElementsAre(treadmillLoad(16.0F, 0.0F)));
}

TEST_F(TrackMasterTest, WaitsForTenBytes) {
  port.deliver(hex("D1 30 30 33 31"));
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_EQ(treadmill->requestSpeed, -1.0F);
  EXPECT_EQ(treadmill->result, "D130303331");
  port.deliver(hex("D2 30 30 32"));
  EXPECT_EQ(treadmill->requestSpeed, -1.0F);
  port.deliver(hex("35"));
  EXPECT_THAT(host.calls(), ElementsAre(treadmillLoad(5.0F, 2.5F)));
}

TEST_F(TrackMasterTest, ReportsNoSpeedAlone) {
  treadmill->requestLoad();
  port.deliver(hex("D1 30 30 33 31 D1 30 30 34 31"));
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_FLOAT_EQ(treadmill->requestSpeed, 4.96F);
  EXPECT_EQ(treadmill->result, "D130303431");
}

TEST_F(TrackMasterTest, ReadsAGradeThatComesFirst) {
  port.deliver(hex("D2 30 31 30 30 D1 30 30 33 31"));
  EXPECT_EQ(treadmill->requestGrade, 10.0F);
  EXPECT_EQ(treadmill->requestSpeed, -1.0F);
  EXPECT_EQ(treadmill->result, "D130303331");
}

TEST_F(TrackMasterTest, ReadsOnlyTheLowDigitsOfTheAnswer) {
  port.deliver(hex("D1 00 10 23 F1 D2 00 00 92 85"));
  EXPECT_THAT(host.calls(), ElementsAre(treadmillLoad(5.0F, 2.5F)));
}

TEST_F(TrackMasterTest, RoundsTheSpeedAsItsTextIsRounded) {
  for (int tenths = 0; tenths <= 9999; ++tenths) {
    const std::string digits = std::to_string(10000 + tenths).substr(1);
    receive(loadReply(digits, "0000"));
    const float kmph = static_cast<float>(tenths) / 10.0F * 1.6F;
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", static_cast<double>(kmph));
    ASSERT_THAT(host.takeCalls(), ElementsAre(treadmillLoad(std::strtof(text, nullptr), 0.0F))) << digits;
  }
}

TEST_F(TrackMasterTest, KeepsASpeedWhoseDigitsAreNone) {
  for (const char* digits : {"3A 30 30 31", "30 30 3F 31", "31 3E 30 35"}) {
    SCOPED_TRACE(digits);
    treadmill->result.clear();
    port.deliver(hex("D1" + std::string(digits) + "D2 30 30 32 35"));
    EXPECT_EQ(treadmill->requestSpeed, -1.0F);
    EXPECT_EQ(treadmill->requestGrade, -1.0F) << "the grade is not in front";
    EXPECT_EQ(treadmill->result.size(), 20U);
  }
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(TrackMasterTest, RepeatsAKnownLoadWhenTheDigitsOfTheNextAreNone) {
  port.deliver(loadReply("0031", "0025"));
  port.deliver(hex("D1 3A 30 30 31 D2 30 30 32 35"));
  port.deliver(hex("B1"));
  EXPECT_THAT(host.calls(),
              ElementsAre(treadmillLoad(5, 2.5F), treadmillLoad(5, 2.5F), treadmillLoad(5, 2.5F)));
  EXPECT_EQ(treadmill->result, "D13A303031D230303235B1") << "it stays in front of everything that follows";
}

TEST_F(TrackMasterTest, KeepsAGradeWhoseDigitsAreNone) {
  port.deliver(hex("D1 30 30 33 31 D2 30 3B 32 35"));
  EXPECT_FLOAT_EQ(treadmill->requestSpeed, 4.96F);
  EXPECT_EQ(treadmill->requestGrade, -1.0F);
  EXPECT_EQ(treadmill->result, "D2303B3235");
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(TrackMasterTest, AnswersForItsStateInsteadOfDecoding) {
  treadmill->deviceState();
  port.deliver(loadReply("0031", "0025"));
  EXPECT_THAT(host.takeCalls(), ElementsAre(deviceIsReady(true)));
  EXPECT_FALSE(treadmill->isState);
  EXPECT_EQ(treadmill->requestSpeed, -1.0F);
  EXPECT_EQ(treadmill->result.size(), 20U) << "the reply waits for the next bytes";
  port.deliver(hex("B1"));
  EXPECT_THAT(host.calls(), ElementsAre(treadmillLoad(5, 2.5F)));
  EXPECT_EQ(treadmill->result, "B1");
}

TEST_F(TrackMasterTest, ForgetsAStateQuestionThatTheHostAsksWithinTheAnswer) {
  treadmill->deviceState();
  host.onCall([&](const RecordedCall&) { treadmill->deviceState(); });
  port.deliver(loadReply("0031", "0025"));
  EXPECT_THAT(host.calls(), ElementsAre(deviceIsReady(true)));
  EXPECT_FALSE(treadmill->isState);
}

TEST_F(TrackMasterTest, AnswersForItsStateOnlyToASpeed) {
  treadmill->deviceState();
  port.deliver(hex("D2 30 31 30 30 D2 30 31 30 30"));
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_TRUE(treadmill->isState);
  EXPECT_EQ(treadmill->requestGrade, 10.0F);
}

TEST_F(TrackMasterTest, SkipsWhatNoReplyBeginsWith) {
  port.deliver(hex("00 A1 FF 0B 10 B1"));
  EXPECT_THAT(host.calls(), ElementsAre(successfully()));
  EXPECT_EQ(treadmill->result, "");
}

TEST_F(TrackMasterTest, CallsOnlyWhatTheHostAnswers) {
  host.answerOnly({});
  treadmill->deviceState();
  port.deliver(hex("BE"));
  port.deliver(hex("B1"));
  port.deliver(loadReply("0031", "0025"));
  port.deliver(hex("BE"));
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_FALSE(treadmill->isState);
  EXPECT_EQ(treadmill->requestSpeed, 5.0F);
}

// The scan that nothing ends

struct NeverReturned {};

class TrackMasterScanTest : public TrackMasterTest {
 protected:
  TrackMasterScanTest() {
    ProcessHooks hooks = exchangeProcessHooks({});
    before_ = hooks;
    hooks.neverReturn = [] { throw NeverReturned(); };
    exchangeProcessHooks(hooks);
  }
  ~TrackMasterScanTest() override { exchangeProcessHooks(before_); }

 private:
  ProcessHooks before_;
};

TEST_F(TrackMasterScanTest, NeverReturnsFromBytesWithoutAReply) {
  for (const char* noise : {"00", "A1", "1B 10", "00 01 02 03 04 05 06 07 08 09 0A 0B 0C", ""}) {
    SCOPED_TRACE(noise);
    EXPECT_THROW(receive(hex(noise)), NeverReturned);
    EXPECT_EQ(treadmill->result, "") << "everything has been consumed";
  }
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(TrackMasterScanTest, LogsAndFlushesWhatItNeverReturnsFrom) {
  EXPECT_THROW(receive(hex("01 02")), NeverReturned);
  EXPECT_NE(treadmill->fileTimer, nullptr);
  EXPECT_THAT(records(), ElementsAre("jointDeviceResult:0102"));
}

TEST_F(TrackMasterScanTest, ReturnsFromAReplyBehindTheNoise) {
  EXPECT_NO_THROW(receive(hex("00 BF")));
  EXPECT_THROW(receive(hex("00")), NeverReturned);
}

TEST_F(TrackMasterScanTest, NeverReturnsFromARemnantOfALoad) {
  receive(hex("D1 30 30 33 31 D1 30 30 33 31"));
  EXPECT_NO_THROW(receive(hex("D2 30 30 32 35")));
  EXPECT_EQ(treadmill->result, "");
  EXPECT_THROW(receive(hex("30")), NeverReturned);
}

// Stopping

TEST_F(TrackMasterTest, BringsTheBeltToRestFirst) {
  treadmill->stopStressDevice();
  EXPECT_TRUE(treadmill->isStop);
  EXPECT_THAT(port.takeSent(), ElementsAre(hex("A3 30 30 30"), hex("A4 30 30 30 30")));
  port.advance(999ms);
  EXPECT_THAT(port.takeSent(), IsEmpty());
  port.advance(1ms);
  EXPECT_THAT(port.takeSent(), ElementsAre(C1, C2));
  port.advance(1s);
  EXPECT_THAT(port.takeSent(), ElementsAre(C1, C2)) << "not throttled, and for as long as it takes";
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(TrackMasterTest, StopsWhenTheBeltStands) {
  treadmill->stopStressDevice();
  port.advance(1s);
  port.deliver(loadReply("0010", "0000"));
  EXPECT_FALSE(treadmill->isStaticState);
  port.advance(1s);
  port.takeSent();
  standStill();
  EXPECT_TRUE(treadmill->isStaticState);
  EXPECT_EQ(treadmill->requestSpeed, 0.0F);
  port.advance(999ms);
  EXPECT_THAT(port.takeSent(), IsEmpty());
  port.advance(1ms);
  EXPECT_THAT(port.takeSent(), ElementsAre(A2));
  EXPECT_FALSE(treadmill->isStop);
  EXPECT_EQ(treadmill->timer, nullptr);
  EXPECT_EQ(treadmill->requestSpeed, -1.0F);
  EXPECT_EQ(treadmill->requestGrade, -1.0F);
  port.advance(10s);
  EXPECT_THAT(port.takeSent(), IsEmpty());
  EXPECT_THAT(host.calls(), IsEmpty()) << "nothing is reported during a stop";
}

TEST_F(TrackMasterTest, DoesNotStandWhileItIsInclined) {
  treadmill->stopStressDevice();
  port.deliver(loadReply("0000", "0010"));
  EXPECT_FALSE(treadmill->isStaticState);
  standStill();
  EXPECT_TRUE(treadmill->isStaticState);
  port.deliver(loadReply("0010", "0000"));
  EXPECT_FALSE(treadmill->isStaticState) << "the last report counts";
}

TEST_F(TrackMasterTest, AcknowledgesDuringAStop) {
  treadmill->stopStressDevice();
  port.deliver(hex("B3"));
  port.deliver(hex("BF"));
  EXPECT_THAT(host.calls(), ElementsAre(successfully(), error("00", "disable instruction")));
}

TEST_F(TrackMasterTest, IgnoresASecondStopInARow) {
  treadmill->stopStressDevice();
  port.takeSent();
  const auto timer = treadmill->timer;
  port.advance(500ms);
  treadmill->stopStressDevice();
  EXPECT_THAT(port.takeSent(), IsEmpty());
  EXPECT_EQ(treadmill->timer, timer);
  port.advance(500ms);
  EXPECT_THAT(port.takeSent(), ElementsAre(C1, C2));
  port.advance(500ms);
  EXPECT_THAT(port.takeSent(), IsEmpty());
}

TEST_F(TrackMasterTest, ForgetsTheStopForANewLoad) {
  treadmill->stopStressDevice();
  port.advance(500ms);
  treadmill->setLoad(5, 2);
  EXPECT_FALSE(treadmill->isStop);
  port.takeSent();
  standStill();
  EXPECT_THAT(host.takeCalls(), ElementsAre(treadmillLoad(0, 0)));
  port.advance(500ms);
  EXPECT_THAT(port.takeSent(), ElementsAre(C1, C2)) << "the timer goes on asking";
  port.advance(1s);
  EXPECT_THAT(port.takeSent(), ElementsAre(C1, C2));
}

TEST_F(TrackMasterTest, ForgetsTheStopEvenForALoadThatItRefuses) {
  treadmill->stopStressDevice();
  treadmill->setLoad(50, 50);
  EXPECT_FALSE(treadmill->isStop);
}

TEST_F(TrackMasterTest, AsksWithTwoTimersAfterAStopThatFollowsACancelledOne) {
  treadmill->stopStressDevice();
  const auto first = treadmill->timer;
  port.advance(250ms);
  treadmill->setLoad(5, 2);
  treadmill->stopStressDevice();
  EXPECT_NE(treadmill->timer, first);
  EXPECT_TRUE(first->isValid());
  port.takeSent();
  port.advance(750ms);
  EXPECT_THAT(port.takeSent(), ElementsAre(C1, C2));
  port.advance(250ms);
  EXPECT_THAT(port.takeSent(), ElementsAre(C1, C2));
  standStill();
  port.advance(750ms);
  EXPECT_THAT(port.takeSent(), ElementsAre(A2)) << "the older timer comes first, and ends the newer one";
  EXPECT_EQ(treadmill->timer, nullptr);
  port.advance(250ms);
  EXPECT_THAT(port.takeSent(), IsEmpty());
  port.advance(750ms);
  EXPECT_THAT(port.takeSent(), ElementsAre(C1, C2)) << "the older one itself goes on";
  first->invalidate();
}

// The tick that finds the belt standing but the stop cancelled must neither stop it nor end the timer.
TEST_F(TrackMasterTest, SendsNoStopForABeltThatStoodBeforeTheNewLoad) {
  treadmill->stopStressDevice();
  standStill();
  ASSERT_TRUE(treadmill->isStaticState);
  treadmill->setLoad(5, 2);
  port.takeSent();
  port.advance(1s);
  EXPECT_THAT(port.takeSent(), ElementsAre(C1, C2));
  EXPECT_NE(treadmill->timer, nullptr);
}

TEST_F(TrackMasterTest, LeavesTheThrottleAloneWhileItStops) {
  treadmill->requestLoad();
  treadmill->stopStressDevice();
  port.takeSent();
  port.advance(1s);
  EXPECT_THAT(port.takeSent(), ElementsAre(C1, C2)) << "of the stop";
  treadmill->requestLoad();
  EXPECT_THAT(port.takeSent(), ElementsAre(C1, C2)) << "of the request, in the same instant";
}

// What the belt did in the last stop is taken for granted in the next: its first tick sends the stop.
TEST_F(TrackMasterTest, TakesTheBeltForStandingInTheNextStop) {
  treadmill->stopStressDevice();
  standStill();
  port.advance(1s);
  treadmill->setLoad(5, 2);
  port.takeSent();
  treadmill->stopStressDevice();
  port.takeSent();
  port.advance(1s);
  EXPECT_THAT(port.takeSent(), ElementsAre(A2));
}

TEST_F(TrackMasterTest, GoesOnStoppingOnThePortOfTheMoment) {
  treadmill->stopStressDevice();
  treadmill->setSerialPort(nullptr);
  port.takeSent();
  port.advance(1s);
  EXPECT_THAT(port.takeSent(), IsEmpty());
  treadmill->setSerialPort(port);
  port.advance(1s);
  EXPECT_THAT(port.takeSent(), ElementsAre(C1, C2));
  port.close();
  port.advance(1s);
  EXPECT_THAT(port.takeSent(), IsEmpty());
  port.open();
  port.takeSent();
  host.takeCalls();
  standStill();
  port.advance(1s);
  EXPECT_THAT(port.takeSent(), ElementsAre(A2));
}

TEST_F(TrackMasterTest, BringsTheBeltToRestWhenTheHostLetsGoOfIt) {
  treadmill->stopStressDevice();
  const std::weak_ptr<TrackMaster> dropped = treadmill;
  treadmill = std::make_shared<TrackMaster>();
  ASSERT_FALSE(dropped.expired());
  standStill();
  port.takeSent();
  port.advance(1s);
  EXPECT_THAT(port.takeSent(), ElementsAre(A2));
  EXPECT_TRUE(dropped.expired());
}

// The traffic log

TEST_F(TrackMasterTest, FlushesTheLogEveryThreeSecondsFromTheFirstReplyOn) {
  treadmill->setLoad(5, 2);
  port.advance(1s);
  port.deliver(hex("B3"));  // flushes at 4, 7, 10 s
  const auto timer = treadmill->fileTimer;
  ASSERT_NE(timer, nullptr);
  port.advance(2s);
  EXPECT_EQ(flushedRecords().size(), 2U) << "the log flushes by itself three seconds after its first record";
  port.advance(500ms);
  treadmill->requestLoad();  // the log's own flush would be due at 6.5 s
  port.advance(499ms);
  EXPECT_EQ(flushedRecords().size(), 2U);
  port.advance(1ms);
  EXPECT_EQ(flushedRecords().size(), 3U);
  port.advance(1s);
  port.deliver(hex("B4"));
  EXPECT_EQ(treadmill->fileTimer, timer) << "one for the driver's life";
  port.advance(1999ms);
  EXPECT_EQ(flushedRecords().size(), 3U) << "the log's own timer is gone";
  port.advance(1ms);
  EXPECT_EQ(flushedRecords().size(), 4U);
}

TEST_F(TrackMasterTest, GoesOnFlushingWithoutAPort) {
  port.deliver(hex("B3"));
  treadmill->setSerialPort(nullptr);
  FileManagerTool::share().clearTimer();
  port.advance(2999ms);
  EXPECT_THAT(flushedRecords(), IsEmpty());
  port.advance(1ms);
  EXPECT_THAT(flushedRecords(), ElementsAre("jointDeviceResult:B3"));
}

TEST_F(TrackMasterTest, FlushesNothingBeforeTheFirstReply) {
  treadmill->setLoad(5, 2);
  treadmill->requestLoad();
  EXPECT_EQ(treadmill->fileTimer, nullptr);
}

TEST_F(TrackMasterTest, DoesNotLiveForItsFlush) {
  port.deliver(hex("B1"));
  const auto timer = treadmill->fileTimer;
  const std::weak_ptr<TrackMaster> dropped = treadmill;
  treadmill = std::make_shared<TrackMaster>();
  EXPECT_TRUE(dropped.expired());
  port.advance(3s);
  EXPECT_FALSE(timer->isValid()) << "nor does the flush outlive the driver";
}

}  // namespace
}  // namespace tarsil
