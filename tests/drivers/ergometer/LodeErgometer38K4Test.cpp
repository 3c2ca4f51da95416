#include "tarsil/drivers/ergometer/LodeErgometer38K4.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "ErgometerTest.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

using LodeErgometer38K4Test = ErgometerTest<LodeErgometer38K4>;

TEST_F(LodeErgometer38K4Test, IsMadeWithoutACommand) {
  EXPECT_EQ(ergometer->type, 1);
  EXPECT_FALSE(ergometer->isClose);
  EXPECT_EQ(ergometer->resultString, "");
}

// The point of the decimal text reads as 03.
TEST_F(LodeErgometer38K4Test, SendsTheLastThreeCharactersOfThePower) {
  ergometer->setLoad(87.5F, 0);
  ergometer->setLoad(100, 7);
  ergometer->setLoad(0, 0);
  ergometer->setLoad(87.25F, 0);
  EXPECT_THAT(port.sent(), ElementsAre(hex("31 2C 53 50 37 03 35 0D"), hex("31 2C 53 50 30 03 30 0D"),
                                       hex("31 2C 53 50 30 03 30 0D"), hex("31 2C 53 50 03 32 35 0D")));
}

TEST_F(LodeErgometer38K4Test, NotesThatItSentALoad) {
  ergometer->requestBP();
  ergometer->setLoad(75, 0);
  EXPECT_EQ(ergometer->type, 1);
}

TEST_F(LodeErgometer38K4Test, NotesEachCodeBeforeItsCommandIsSent) {
  std::vector<int> codes;
  port.terminal().onWrite([&](const Bytes&) { codes.push_back(ergometer->type); });
  ergometer->requestLoad();
  ergometer->startBP();
  ergometer->breakBP();
  ergometer->requestBP();
  ergometer->setLoad(75, 0);
  EXPECT_THAT(codes, ElementsAre(2, 4, 5, 6, 7, 1));
}

TEST_F(LodeErgometer38K4Test, SendsWhatTheTextOfAnOddPowerGives) {
  ergometer->setLoad(-87.5F, 0);
  ergometer->setLoad(1e20F, 0);
  ergometer->setLoad(1e-5F, 0);
  ergometer->setLoad(std::numeric_limits<float>::quiet_NaN(), 0);
  ergometer->setLoad(std::numeric_limits<float>::infinity(), 0);
  EXPECT_THAT(port.sent(), ElementsAre(hex("31 2C 53 50 37 03 35 0D"), hex("31 2C 53 50 03 32 30 0D"),
                                       hex("31 2C 53 50 03 30 35 0D"), hex("31 2C 53 50 03 3A 03 0D"),
                                       hex("31 2C 53 50 03 03 3F 0D")));
}

TEST_F(LodeErgometer38K4Test, RequestsTheLoadInTwoWrites) {
  ergometer->requestLoad();
  EXPECT_THAT(sent(), ElementsAre("1,PM\r", "1,RM\r"));
  EXPECT_EQ(ergometer->type, 4);
  port.advance(10s);
  EXPECT_EQ(sent().size(), 2U);
}

TEST_F(LodeErgometer38K4Test, CommandsTheBloodPressure) {
  ergometer->startBP();
  EXPECT_EQ(ergometer->type, 5);
  ergometer->breakBP();
  EXPECT_EQ(ergometer->type, 6);
  ergometer->requestBP();
  EXPECT_EQ(ergometer->type, 7);
  EXPECT_THAT(sent(), ElementsAre("1,BS\r", "1,BQ\r", "1,BR\r"));
}

TEST_F(LodeErgometer38K4Test, NeitherStartsNorStops) {
  ergometer->requestBP();
  port.takeSent();
  ergometer->stopStressDevice();
  ergometer->startDeivce();
  port.advance(10s);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_EQ(ergometer->type, 7);
}

TEST_F(LodeErgometer38K4Test, HearsNothing) {
  receive("1,120\r");
  receive("\xFF");
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_THAT(managerHost.calls(), IsEmpty());
  EXPECT_THAT(printed.diagnostic(), IsEmpty());
  EXPECT_EQ(ergometer->resultString, "");
}

TEST_F(LodeErgometer38K4Test, DropsEveryCommandWithoutAPort) {
  ergometer->setSerialPort(nullptr);
  ergometer->setLoad(75, 0);
  ergometer->requestLoad();
  ergometer->startBP();
  ergometer->breakBP();
  ergometer->requestBP();
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_EQ(ergometer->type, 7) << "the code is noted all the same";
}

}  // namespace
}  // namespace tarsil
