#include "tarsil/drivers/treadmill/LodeOEMTreadmill.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "TreadmillTest.hpp"
#include "tests/helpers/FatalStop.hpp"

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr const char* tokenTooLong =
    "fatal error: Lode OEM treadmill: a token of a frame does not fit 16 bits";

class LodeOEMTreadmillTest : public TreadmillTest<LodeOEMTreadmill> {
 protected:
  /// 5.0 km/h and 16 %; the check of single bytes is always 00 00.
  const Bytes loadReply = hex("AC 01 0A 01 02 03 04 05 00 32 00 10 00 00");
};

// Commands

TEST_F(LodeOEMTreadmillTest, SendsItsCommands) {
  treadmill->startDeivce();
  treadmill->stopStressDevice();
  treadmill->requestLoad();
  EXPECT_THAT(port.sent(), ElementsAre(hex("AC 01 0B 00 00 00 00"), hex("AC 01 0C 00 00 00 00"),
                                       hex("AC 01 0A 00 00 00 00")));
  EXPECT_FALSE(treadmill->isState);
}

TEST_F(LodeOEMTreadmillTest, AsksForItsState) {
  treadmill->deviceState();
  EXPECT_TRUE(treadmill->isState);
  EXPECT_THAT(port.sent(), ElementsAre(hex("AC 01 0A 00 00 00 00")));
}

TEST_F(LodeOEMTreadmillTest, SendsTheLoad) {
  treadmill->setLoad(5.0F, 16.0F);
  EXPECT_THAT(port.takeSent(),
              ElementsAre(hex("AC 01 09 00 0D 01 00 00 00 32 00 10 00 00 00 00 00 00 00 00")));
  treadmill->setLoad(6553.5F, 16.9F);
  EXPECT_THAT(port.takeSent(),
              ElementsAre(hex("AC 01 09 00 0D 01 00 00 00 FF FF 00 10 00 00 00 00 00 00 40 40")));
  treadmill->setLoad(5.0F, 65535.0F);
  EXPECT_THAT(port.takeSent(),
              ElementsAre(hex("AC 01 09 00 0D 01 00 00 00 32 00 FF FF 00 00 00 00 00 00 40 40")));
}

// A value that has not two digits enters the check, and shifts what follows by half a byte.
TEST_F(LodeOEMTreadmillTest, SendsAShiftedFrameForAValueOfOneOrThreeDigits) {
  treadmill->setLoad(4.5F, 5.0F);
  EXPECT_THAT(port.takeSent(),
              ElementsAre(hex("0A C0 10 90 00 D0 10 00 00 02 D0 05 00 00 00 00 00 00 C0 03")));
  treadmill->setLoad(25.5F, 15.0F);
  EXPECT_THAT(port.takeSent(),
              ElementsAre(hex("0A C0 10 90 00 D0 10 00 00 0F F0 0F 00 00 00 00 00 00 40 04")));
  treadmill->setLoad(25.6F, 16.0F);
  EXPECT_THAT(port.takeSent(),
              ElementsAre(hex("0A C0 10 90 00 D0 10 00 00 01 00 00 10 00 00 00 00 00 00 00 00")));
  treadmill->setLoad(0.0F, 0.0F);
  EXPECT_THAT(port.takeSent(), ElementsAre(hex("AC 01 09 00 0D 01 00 00 00 00 00 00 00 00 00 00 00 00 00")))
      << "two shifts make a whole byte";
}

TEST_F(LodeOEMTreadmillTest, MultipliesTheSpeedInSinglePrecision) {
  treadmill->setLoad(0.7F, 16.0F);
  EXPECT_THAT(port.sent(), ElementsAre(hex("0A C0 10 90 00 D0 10 00 00 07 00 10 00 00 00 00 00 00 41 C2")));
}

TEST_F(LodeOEMTreadmillTest, SendsWhatTheTextOfANegativeValueGives) {
  treadmill->setLoad(-0.1F, 16.0F);
  EXPECT_THAT(port.takeSent(),
              ElementsAre(hex("AC 01 09 00 0D 01 00 00 00 00 00 10 00 00 00 00 00 00 00 00")));
  treadmill->setLoad(-1.6F, 16.0F);
  EXPECT_THAT(port.takeSent(),
              ElementsAre(hex("0A C0 10 90 00 D0 10 00 00 00 10 00 10 00 00 00 00 00 00 01 CC")));
  treadmill->setLoad(5.0F, -5.0F);
  EXPECT_THAT(port.takeSent(),
              ElementsAre(hex("AC 01 09 00 0D 01 00 00 00 32 00 00 00 00 00 00 00 00 00 00")));
  treadmill->setLoad(5.0F, -255.0F);
  EXPECT_THAT(port.takeSent(),
              ElementsAre(hex("0A C0 10 90 00 D0 10 00 00 03 20 00 FF 00 00 00 00 00 00 40 40")));
}

TEST_F(LodeOEMTreadmillTest, StopsOnALoadThatIsNoInteger) {
  for (const float impossible : {nan, infinity, -infinity, 1e19F, -1e19F}) {
    SCOPED_TRACE(impossible);
    EXPECT_DEATH(treadmill->setLoad(impossible, 0), "fatal error: ten times the speed in km/h does not fit");
    EXPECT_DEATH(treadmill->setLoad(0, impossible), "fatal error: grade in percent does not fit");
  }
  EXPECT_DEATH(treadmill->setLoad(1e18F, 0), "fatal error: ten times the speed in km/h does not fit");
  treadmill->setSerialPort(nullptr);
  EXPECT_DEATH(treadmill->setLoad(nan, 0), "fatal error: ten times the speed in km/h does not fit");
}

TEST_F(LodeOEMTreadmillTest, StopsOnALoadBeyondSixteenBits) {
  EXPECT_DEATH(treadmill->setLoad(6553.6F, 0), tokenTooLong);
  EXPECT_DEATH(treadmill->setLoad(0, 65536.0F), tokenTooLong);
  EXPECT_DEATH(treadmill->setLoad(0, -65536.0F), tokenTooLong) << "the minus sign is skipped";
  EXPECT_DEATH(treadmill->setLoad(0, 9e18F), tokenTooLong);
  EXPECT_DEATH(treadmill->setLoad(0, -0x1p63F), tokenTooLong);
  treadmill->setSerialPort(nullptr);
  EXPECT_DEATH(treadmill->setLoad(6553.6F, 0), tokenTooLong);
}

TEST_F(LodeOEMTreadmillTest, DropsEveryCommandWithoutAPort) {
  treadmill->setSerialPort(nullptr);
  treadmill->startDeivce();
  treadmill->setLoad(5, 16);
  treadmill->deviceState();
  EXPECT_THAT(port.sent(), IsEmpty());
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_TRUE(treadmill->isState);
}

TEST_F(LodeOEMTreadmillTest, HasNoOtherCommands) {
  treadmill->startBP();
  treadmill->breakBP();
  treadmill->requestBP();
  treadmill->requestSpO2();
  EXPECT_THAT(port.sent(), IsEmpty());
}

// Replies

TEST_F(LodeOEMTreadmillTest, ReportsALoadInTenths) {
  port.deliverByteByByte(loadReply);
  EXPECT_THAT(host.calls(), ElementsAre(treadmillLoad(50, 16)));
  EXPECT_EQ(treadmill->requestSpeed, -1.0F) << "a reported load is not kept";
}

TEST_F(LodeOEMTreadmillTest, ReadsSixteenBits) {
  port.deliverByteByByte(hex("AC 01 0A 01 02 03 04 05 01 23 FF FF 00 00"));
  EXPECT_THAT(host.calls(), ElementsAre(treadmillLoad(291, 65535)));
}

// The check bytes may end a reply anywhere from the twelfth entry on; then they are the grade.
TEST_F(LodeOEMTreadmillTest, ReadsTheGradeAsSoonAsThereIsOne) {
  port.deliverByteByByte(hex("AC 01 0A 01 02 03 04 05 00 32 00 00"));
  EXPECT_THAT(host.calls(), ElementsAre(treadmillLoad(50, 0)));
}

TEST_F(LodeOEMTreadmillTest, ReportsTheFirstReplyForEver) {
  port.deliverByteByByte(loadReply);
  port.deliverByteByByte(hex("AC 01 0A 01 02 03 04 05 00 64 00 05 00 00"));
  EXPECT_THAT(host.calls(), ElementsAre(treadmillLoad(50, 16), treadmillLoad(50, 16)));
  EXPECT_EQ(treadmill->result.count(), 28U);
}

TEST_F(LodeOEMTreadmillTest, AnswersForItsStateWithTheNextLoadReply) {
  treadmill->deviceState();
  port.deliverByteByByte(loadReply);
  EXPECT_THAT(host.takeCalls(), ElementsAre(deviceIsReady(true)));
  EXPECT_FALSE(treadmill->isState);
  port.deliver(hex("00"));
  EXPECT_THAT(host.calls(), ElementsAre(treadmillLoad(50, 16)));
}

TEST_F(LodeOEMTreadmillTest, TakesANewStateQuestionFromWithinTheAnswer) {
  treadmill->deviceState();
  host.onCall([&](const RecordedCall&) {
    EXPECT_FALSE(treadmill->isState);
    treadmill->deviceState();
  });
  port.deliverByteByByte(loadReply);
  EXPECT_TRUE(treadmill->isState);
  port.deliver(hex("00"));
  EXPECT_THAT(host.calls(), ElementsAre(deviceIsReady(true), deviceIsReady(true)));
}

TEST_F(LodeOEMTreadmillTest, AnswersForItsStateWithAReplyTooShortForALoad) {
  treadmill->deviceState();
  port.deliverByteByByte(hex("AC 01 0A 01 00 00"));
  EXPECT_THAT(host.calls(), ElementsAre(deviceIsReady(true)));
}

TEST_F(LodeOEMTreadmillTest, ReportsARefusalWithEveryCheckThatPasses) {
  port.deliverByteByByte(hex("AC 01 EF 00 00"));
  EXPECT_THAT(host.calls(), IsEmpty()) << "five entries are never tested";
  port.deliver(hex("00"));
  port.deliver(hex("00"));
  EXPECT_THAT(host.takeCalls(), ElementsAre(error("", "send failure"), error("", "send failure")));
  port.deliverByteByByte(hex("AC 01 0A 01"));
  EXPECT_THAT(host.calls(), IsEmpty());
  port.deliverByteByByte(hex("00 00"));
  EXPECT_THAT(host.calls(), ElementsAre(error("", "send failure")));
}

TEST_F(LodeOEMTreadmillTest, LeavesTheStateQuestionOpenAtARefusal) {
  treadmill->deviceState();
  port.deliverByteByByte(hex("AC 01 EF 00 00 00"));
  EXPECT_THAT(host.calls(), ElementsAre(error("", "send failure")));
  EXPECT_TRUE(treadmill->isState);
}

TEST_F(LodeOEMTreadmillTest, IgnoresOtherKindsOfReply) {
  port.deliverByteByByte(hex("AC 01 0B 00 00 00 00 00 00 00 00 00 00"));
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(LodeOEMTreadmillTest, IgnoresAReplyThatFailsItsCheck) {
  port.deliverByteByByte(hex("AC 01 0A 01 02 03 04 05 00 32 00 10 00 01"));
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(LodeOEMTreadmillTest, ChecksLongChunksOnly) {
  // Entry 2 stays a kind of one byte; the check over 0x0305 is that over 05.
  for (const auto& entry : {hex("AC"), hex("01"), hex("EF"), hex("03 05"), hex("C0"), hex("03")})
    port.deliver(entry);
  EXPECT_THAT(host.takeCalls(), ElementsAre(error("", "send failure")));
  for (const auto& entry : {hex("00"), hex("00")}) port.deliver(entry);
  EXPECT_THAT(host.calls(), IsEmpty()) << "it stays part of the check";
  for (const auto& entry : {hex("C0"), hex("03")}) port.deliver(entry);
  EXPECT_THAT(host.calls(), ElementsAre(error("", "send failure")));
}

TEST_F(LodeOEMTreadmillTest, LeavesAnEmptyChunkOutOfTheCheck) {
  for (const auto& entry : {hex("AC"), hex("01"), hex("EF"), hex(""), hex("00"), hex("00")}) receive(entry);
  EXPECT_THAT(host.calls(), ElementsAre(error("", "send failure")));
  EXPECT_EQ(treadmill->result.count(), 6U);
}

TEST_F(LodeOEMTreadmillTest, StopsOnALoadReplyThatIsTooShort) {
  EXPECT_DEATH(port.deliverByteByByte(hex("AC 01 0A 01 00 00")),
               "fatal error: Lode OEM treadmill: a load reply ends before its speed");
  EXPECT_DEATH(port.deliverByteByByte(hex("AC 01 0A 01 02 03 04 00 00")), "ends before its speed");
  EXPECT_DEATH(port.deliverByteByByte(hex("AC 01 0A 01 02 03 04 05 00 00")),
               "fatal error: Lode OEM treadmill: a load reply ends before its grade");
  EXPECT_DEATH(port.deliverByteByByte(hex("AC 01 0A 01 02 03 04 05 01 00 00")), "ends before its grade");
}

TEST_F(LodeOEMTreadmillTest, StopsOnALongChunkWhenTheCheckReachesIt) {
  port.deliver(hex("01 00 00"));
  port.deliverByteByByte(hex("01 02 03 04"));
  EXPECT_THAT(host.calls(), IsEmpty()) << "five entries are never tested";
  EXPECT_DEATH(port.deliver(hex("00")), tokenTooLong);
}

TEST_F(LodeOEMTreadmillTest, StopsOnALongChunkOnceItIsNoLongerTheLast) {
  port.deliverByteByByte(hex("01 02 03 04 05 06 07"));
  port.deliver(hex("01 00 00"));
  EXPECT_DEATH(port.deliver(hex("00")), tokenTooLong);
}

TEST_F(LodeOEMTreadmillTest, ReadsALongChunkThatBeginsWithZeros) {
  port.deliver(hex("00 00 00 00 00 00 00 00 00 FF FF"));
  EXPECT_EQ(fatalReason([&] { port.deliverByteByByte(hex("01 02 03 04 05 06")); }), std::nullopt);
  port.deliver(Bytes(1024, 0xFF));
  EXPECT_DEATH(port.deliver(hex("00")), tokenTooLong);
}

// A tool that catches the stop finds the driver as it was: the long chunk is still there.
TEST_F(LodeOEMTreadmillTest, StopsAgainWithEveryLaterChunk) {
  for (const auto& entry : {hex("01 00 00"), hex("01"), hex("02"), hex("03"), hex("04")}) receive(entry);
  EXPECT_NE(fatalReason([&] { receive(hex("05")); }), std::nullopt);
  EXPECT_NE(fatalReason([&] { receive(hex("06")); }), std::nullopt);
  EXPECT_EQ(treadmill->result.count(), 7U);
}

TEST_F(LodeOEMTreadmillTest, CallsOnlyWhatTheHostAnswers) {
  host.answerOnly({});
  treadmill->deviceState();
  port.deliverByteByByte(loadReply);
  EXPECT_FALSE(treadmill->isState);
  port.deliver(hex("00"));
  EXPECT_THAT(host.calls(), IsEmpty());
}

}  // namespace
}  // namespace tarsil
