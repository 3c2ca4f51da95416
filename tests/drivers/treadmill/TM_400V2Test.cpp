#include "tarsil/drivers/treadmill/TM_400V2.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "TreadmillTest.hpp"

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float nan = std::numeric_limits<float>::quiet_NaN();

class TM_400V2Test : public TreadmillTest<TM_400V2> {
 protected:
  Bytes sentFor(float kmph) {
    treadmill->setLoad(kmph, 0);
    const auto sent = port.takeSent();
    EXPECT_EQ(sent.size(), 1U);
    return sent.empty() ? Bytes{} : sent.front();
  }
};

TEST_F(TM_400V2Test, StartsAndStops) {
  treadmill->startDeivce();
  treadmill->stopStressDevice();
  EXPECT_THAT(port.sent(), ElementsAre(hex("23 E3 10 00 10 00 FD"), hex("23 E3 10 00 20 00 ED")));
}

TEST_F(TM_400V2Test, SendsTheSpeedInTenths) {
  EXPECT_EQ(sentFor(5.0F), hex("23 E3 00 61 32 00 8A"));
  EXPECT_EQ(sentFor(10.0F), hex("23 E3 00 61 64 00 58"));
  EXPECT_EQ(sentFor(1.6F), hex("23 E3 00 61 10 00 AC"));
}

TEST_F(TM_400V2Test, ShiftsTheFrameForASpeedOfOneDigit) {
  EXPECT_EQ(sentFor(1.0F), hex("02 3E 30 06 1A 00 B2"));
  EXPECT_EQ(sentFor(1.5F), hex("02 3E 30 06 1F 00 AD"));
  EXPECT_EQ(sentFor(0.0F), hex("02 3E 30 06 10 00 BC"));
  EXPECT_EQ(sentFor(-0.0F), hex("02 3E 30 06 10 00 BC"));
  EXPECT_EQ(sentFor(0.09F), hex("02 3E 30 06 10 00 BC"));
  EXPECT_EQ(sentFor(1e-30F), hex("02 3E 30 06 10 00 BC"));
}

TEST_F(TM_400V2Test, ShiftsTheFrameForACheckOfOneDigit) {
  EXPECT_EQ(sentFor(18.7F), hex("02 3E 30 06 1B B0 01"));
}

TEST_F(TM_400V2Test, SendsANegativeCheckFromHereOn) {
  EXPECT_EQ(sentFor(18.8F), hex("23 E3 00 61 BC 00 00 00"));
  EXPECT_EQ(sentFor(19.0F), hex("23 E3 00 61 BE 00 00 02"));
  EXPECT_EQ(sentFor(25.5F), hex("23 E3 00 61 FF 00 00 43"));
  EXPECT_EQ(sentFor(25.6F), hex("02 3E 30 06 11 00 00 00 44"));
}

TEST_F(TM_400V2Test, SendsWhatTheTextOfANegativeSpeedGives) {
  EXPECT_EQ(sentFor(-0.1F), hex("23 E3 00 61 61 00 BB"));
  EXPECT_EQ(sentFor(-1.6F), hex("02 3E 30 06 01 10 00 AC"));
  EXPECT_EQ(sentFor(-0.09F), hex("02 3E 30 06 10 00 BC"));
}

// The floats 1.8 and 1.9 are a little less than their texts say.
TEST_F(TM_400V2Test, MultipliesTheDecimalText) {
  for (int tenths = 16; tenths <= 171; ++tenths) {
    const float kmph = static_cast<float>(tenths) / 10.0F;
    EXPECT_EQ(sentFor(kmph)[4], tenths) << kmph;
  }
}

// A float that lies just below a tenth, times ten as a float, would be that tenth.
TEST_F(TM_400V2Test, MultipliesInDoublePrecision) {
  EXPECT_EQ(sentFor(std::nextafter(1.7F, 0.0F))[4], 16);
  EXPECT_EQ(sentFor(std::nextafter(3.7F, 0.0F))[4], 36);
  EXPECT_EQ(sentFor(std::nextafter(13.1F, 0.0F))[4], 130);
}

// The tenths of 3.3999999 km/h are 33.999999, which as a float are 34.
TEST_F(TM_400V2Test, ReadsTheTenthsAsAFloat) {
  EXPECT_EQ(sentFor(std::nextafter(3.4F, 0.0F))[4], 34);
  EXPECT_EQ(sentFor(std::nextafter(7.8F, 0.0F))[4], 78);
}

TEST_F(TM_400V2Test, SendsNoGradeWhateverItIs) {
  for (const float grade : {0.0F, -0.0F, 1.0F, 2.5F, 10.0F, -5.0F, 1e20F, nan, infinity, -infinity}) {
    SCOPED_TRACE(grade);
    treadmill->setLoad(5.0F, grade);
    EXPECT_THAT(port.takeSent(), ElementsAre(hex("23 E3 00 61 32 00 8A")));
  }
}

TEST_F(TM_400V2Test, StopsOnASpeedThatIsNoInteger) {
  for (const float impossible : {nan, infinity, -infinity, 1e18F, -1e18F, 3e38F, -3e38F}) {
    SCOPED_TRACE(impossible);
    EXPECT_DEATH(treadmill->setLoad(impossible, 0), "fatal error: ten times the speed in km/h does not fit");
  }
  treadmill->setSerialPort(nullptr);
  EXPECT_DEATH(treadmill->setLoad(nan, 0), "fatal error: ten times the speed in km/h does not fit");
}

TEST_F(TM_400V2Test, DropsEveryCommandWithoutAPort) {
  treadmill->setSerialPort(nullptr);
  treadmill->startDeivce();
  treadmill->setLoad(5, 0);
  treadmill->stopStressDevice();
  EXPECT_THAT(port.sent(), IsEmpty());
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(TM_400V2Test, AsksForNothing) {
  treadmill->requestLoad();
  treadmill->deviceState();
  treadmill->startBP();
  treadmill->breakBP();
  treadmill->requestBP();
  treadmill->requestSpO2();
  EXPECT_THAT(port.sent(), IsEmpty());
  EXPECT_FALSE(treadmill->isState);
}

TEST_F(TM_400V2Test, HearsNothing) {
  port.deliver(hex("23 E3 00 61 32 00 8A"));
  port.deliverByteByByte(hex("B1 D1 30 30 30 30 D2 30 30 30 30 00 00 00 FF"));
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_THAT(printed.diagnostic(), IsEmpty());
  EXPECT_EQ(treadmill->requestSpeed, -1.0F);
  EXPECT_EQ(treadmill->requestGrade, -1.0F);
  EXPECT_FALSE(treadmill->isState);
}

TEST(TM_400V2Frames, AreTheTextsThatTheBytesAreMadeOf) {
  EXPECT_EQ(TM_400V2::speedFrame(50), "23E3006132008a");
  EXPECT_EQ(TM_400V2::speedFrame(10), "23E30061a00b2");
  EXPECT_EQ(TM_400V2::speedFrame(187), "23E30061bb001");
  EXPECT_EQ(TM_400V2::speedFrame(188), "23E30061bc00-200");
  EXPECT_EQ(TM_400V2::speedFrame(190), "23E30061be00-202");
  EXPECT_EQ(TM_400V2::speedFrame(-1), "23E30061-100bb");
}

// The smallest integer's digits stand for 2^63, which is one more than the largest integer: the sum stays
// there.
TEST(TM_400V2Frames, SurviveTheLargestNumbers) {
  EXPECT_EQ(TM_400V2::speedFrame(std::numeric_limits<std::int64_t>::min()),
            "23E30061-800000000000000000-7ffffffffffffdff");
  EXPECT_EQ(TM_400V2::speedFrame(0x7FFFFF8000000000), "23E300617fffff800000000000-7fffff7fffffff44");
}

TEST(TM_400V2Frames, PadTheGrade) {
  EXPECT_EQ(TM_400V2::gradeFrame(5), "23E4006319059b");
  EXPECT_EQ(TM_400V2::gradeFrame(16), "23E40063191090");
  EXPECT_EQ(TM_400V2::gradeFrame(0), "23E400631900a0");
}

}  // namespace
}  // namespace tarsil
