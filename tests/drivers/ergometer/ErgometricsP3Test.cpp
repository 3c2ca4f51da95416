#include "tarsil/drivers/ergometer/ErgometricsP3.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "ErgometerTest.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

using ErgometricsP3Test = ErgometerTest<ErgometricsP3>;

TEST_F(ErgometricsP3Test, SendsThePowerInThreeDigitsAlone) {
  ergometer->setLoad(5, 0);
  ergometer->setLoad(75, 12);
  ergometer->setLoad(150.9F, 0);
  ergometer->setLoad(1200, 0);
  EXPECT_THAT(sent(), ElementsAre("005\r", "075\r", "150\r", "120\r"));
}

TEST_F(ErgometricsP3Test, StopsTheProcessForAnImpossiblePowerEvenWithoutAPort) {
  ergometer->setSerialPort(nullptr);
  EXPECT_DEATH(ergometer->setLoad(std::numeric_limits<float>::quiet_NaN(), 0), "power in watts");
  EXPECT_DEATH(ergometer->setLoad(std::numeric_limits<float>::infinity(), 0), "power in watts");
  EXPECT_DEATH(ergometer->setLoad(-1e19F, 0), "power in watts");
}

TEST_F(ErgometricsP3Test, RequestsTheLoadInOneGo) {
  ergometer->requestLoad();
  EXPECT_THAT(sent(), ElementsAre("W\r", "D\r"));
  port.advance(10s);
  EXPECT_THAT(sent(), ElementsAre("W\r", "D\r"));
}

TEST_F(ErgometricsP3Test, StartsAndStops) {
  ergometer->startDeivce();
  ergometer->stopStressDevice();
  EXPECT_THAT(sent(), ElementsAre("S\r", "F\r", "F\r"));
}

TEST_F(ErgometricsP3Test, StartsAPressureInOneGo) {
  EXPECT_FALSE(ergometer->isBPCommand);
  port.terminal().onWrite([&](const Bytes&) { EXPECT_TRUE(ergometer->isBPCommand); });
  ergometer->startBP();
  EXPECT_TRUE(ergometer->isBPCommand);
  EXPECT_THAT(sent(), ElementsAre("S\r", "U\r"));
  port.advance(10s);
  EXPECT_THAT(sent(), ElementsAre("S\r", "U\r"));
}

TEST_F(ErgometricsP3Test, RequestsThePressureAndCannotAbortIt) {
  ergometer->requestBP();
  ergometer->breakBP();
  EXPECT_THAT(sent(), ElementsAre("O\r"));
}

TEST_F(ErgometricsP3Test, HearsNothing) {
  receive("B120\rn060\r");
  ergometer->startBP();
  receive("O120\rU080\r");
  receive("\xFF");
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_THAT(managerHost.calls(), IsEmpty());
  EXPECT_THAT(printed.diagnostic(), IsEmpty());
  EXPECT_EQ(ergometer->result, "");
  EXPECT_EQ(ergometer->p10SBP, std::nullopt);
  EXPECT_EQ(ergometer->p10DBP, std::nullopt);
  EXPECT_FALSE(ergometer->isRequest);
  EXPECT_EQ(ergometer->type, 0);
}

TEST_F(ErgometricsP3Test, DropsEveryCommandWithoutAPort) {
  ergometer->setSerialPort(nullptr);
  ergometer->setLoad(75, 0);
  ergometer->requestLoad();
  ergometer->startDeivce();
  ergometer->stopStressDevice();
  ergometer->startBP();
  ergometer->requestBP();
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_TRUE(ergometer->isBPCommand);
}

}  // namespace
}  // namespace tarsil
