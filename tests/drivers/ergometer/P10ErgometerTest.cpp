#include "tarsil/drivers/ergometer/P10Ergometer.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "ErgometerTest.hpp"
#include "tarsil/drivers/ergometer/ErgolineP10.hpp"
#include "tarsil/drivers/ergometer/ErgosanaP10.hpp"
#include "tarsil/runtime/RunLoop.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

// What both models of the protocol do alike.
template <class Model>
using P10ErgometerTest = ErgometerTest<Model>;

using Models = testing::Types<ErgolineP10, ErgosanaP10>;
TYPED_TEST_SUITE(P10ErgometerTest, Models);

TYPED_TEST(P10ErgometerTest, IsMadeInEveryWayWithTheSameState) {
  const std::shared_ptr<TypeParam> models[] = {
      std::make_shared<TypeParam>(), std::make_shared<TypeParam>(exerciseSettings("bike")),
      std::make_shared<TypeParam>(BPDeviceSettings{
          .BP = 9600, .databits = 8, .stopbits = 1, .parity = 0, .autoSend = true, .canStopBP = true}),
      std::make_shared<TypeParam>(
          SpO2DeviceSettings{.SpO2 = "bike", .baud = 9600, .databits = 8, .stopbits = 1, .parity = 0})};
  for (const auto& model : models) {
    EXPECT_FALSE(model->isRequest);
    EXPECT_EQ(model->p10SBP, std::nullopt);
    EXPECT_EQ(model->p10DBP, std::nullopt);
    EXPECT_FALSE(model->isBPCommand);
    EXPECT_EQ(model->type, 0);
    EXPECT_FALSE(model->result.contains('\r'));
    EXPECT_EQ(model->result.field(), "范围越界");
  }
  EXPECT_EQ(models[1]->name, "bike");
  EXPECT_EQ(models[2]->baud, 9600);
  EXPECT_EQ(models[3]->name, "bike");
}

TYPED_TEST(P10ErgometerTest, SendsThePowerInThreeDigits) {
  this->ergometer->setLoad(5, 0);
  this->ergometer->setLoad(75, -3.5F);
  this->ergometer->setLoad(150, 10);
  this->ergometer->setLoad(1000, std::numeric_limits<float>::quiet_NaN());
  this->ergometer->setLoad(-5, 0);
  EXPECT_THAT(this->sent(), ElementsAre("005W\r", "075W\r", "150W\r", "100W\r", "0-5W\r"));
}

TYPED_TEST(P10ErgometerTest, StopsTheProcessForAnImpossiblePowerEvenWithoutAPort) {
  this->ergometer->setSerialPort(nullptr);
  for (const float watts : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                            -std::numeric_limits<float>::infinity(), 1e30F}) {
    EXPECT_DEATH(this->ergometer->setLoad(watts, 0), "power in watts") << watts;
  }
}

TYPED_TEST(P10ErgometerTest, StopsWithThreeCommandsInARow) {
  this->ergometer->stopStressDevice();
  EXPECT_THAT(this->sent(), ElementsAre("F\r", "F\r", "F\r"));
  this->port.advance(10s);
  EXPECT_EQ(this->sent().size(), 3U);
}

TYPED_TEST(P10ErgometerTest, RequestsTheLoadInTwoCommandsATenthOfASecondApart) {
  this->ergometer->requestLoad();
  EXPECT_THAT(this->sent(), ElementsAre("D\r"));
  this->port.advance(99ms);
  EXPECT_THAT(this->sent(), ElementsAre("D\r"));
  this->port.advance(1ms);
  EXPECT_THAT(this->sent(), ElementsAre("D\r", "B\r"));
  this->port.advance(10s);
  EXPECT_THAT(this->sent(), ElementsAre("D\r", "B\r"));
}

TYPED_TEST(P10ErgometerTest, StartsAPressureInTwoCommandsATenthOfASecondApart) {
  this->ergometer->startBP();
  EXPECT_TRUE(this->ergometer->isBPCommand);
  EXPECT_THAT(this->sent(), ElementsAre("S\r"));
  this->port.advance(99ms);
  EXPECT_THAT(this->sent(), ElementsAre("S\r"));
  this->port.advance(1ms);
  EXPECT_THAT(this->sent(), ElementsAre("S\r", "U\r"));
  this->port.advance(10s);
  EXPECT_THAT(this->sent(), ElementsAre("S\r", "U\r"));
}

TYPED_TEST(P10ErgometerTest, AwaitsThePressuresBeforeItAsksForThem) {
  std::vector<bool> awaited;
  this->port.terminal().onWrite([&](const Bytes&) { awaited.push_back(this->ergometer->isBPCommand); });
  this->ergometer->requestBP();
  this->ergometer->startBP();
  this->port.advance(100ms);
  EXPECT_THAT(awaited, ElementsAre(false, true, true));
}

TYPED_TEST(P10ErgometerTest, SendsTheSecondCommandsInTheOrderOfTheFirst) {
  this->ergometer->requestLoad();
  this->ergometer->startBP();
  this->ergometer->requestLoad();
  this->port.advance(50ms);
  this->ergometer->startBP();
  this->port.advance(50ms);
  EXPECT_THAT(this->sent(), ElementsAre("D\r", "S\r", "D\r", "S\r", "B\r", "U\r", "B\r"));
  this->port.advance(50ms);
  EXPECT_THAT(this->sent(), ElementsAre("D\r", "S\r", "D\r", "S\r", "B\r", "U\r", "B\r", "U\r"));
}

TYPED_TEST(P10ErgometerTest, SendsTheSecondCommandToThePortOfThatMoment) {
  ScriptedPort other(this->port.time(), "ttyScripted1");
  this->ergometer->requestLoad();
  this->ergometer->setSerialPort(other);
  this->port.advance(100ms);
  EXPECT_THAT(this->sent(), ElementsAre("D\r"));
  EXPECT_THAT(textsOf(other.sent()), ElementsAre("B\r"));
}

TYPED_TEST(P10ErgometerTest, DropsTheSecondCommandWhenThePortIsGone) {
  this->ergometer->startBP();
  this->ergometer->setSerialPort(nullptr);
  this->port.advance(1s);
  EXPECT_THAT(this->sent(), ElementsAre("S\r"));
}

TYPED_TEST(P10ErgometerTest, SendsTheSecondCommandEvenWhenTheFirstWasDropped) {
  this->ergometer->setSerialPort(nullptr);
  this->ergometer->requestLoad();
  this->ergometer->setSerialPort(this->port);
  this->port.advance(100ms);
  EXPECT_THAT(this->sent(), ElementsAre("B\r"));
}

TYPED_TEST(P10ErgometerTest, LivesUntilItsSecondCommandIsSent) {
  this->ergometer->requestLoad();
  const std::weak_ptr<TypeParam> watched = this->ergometer;
  this->ergometer.reset();
  EXPECT_FALSE(watched.expired());
  this->port.advance(100ms);
  EXPECT_THAT(this->sent(), ElementsAre("D\r", "B\r"));
  EXPECT_TRUE(watched.expired());
}

// In the machine's time, since the virtual one has a single thread. The main loop does not run meanwhile.
TEST(P10SecondCommandTest, IsSentOnTheRunLoopOfTheCallingThread) {
  std::thread([] {
    auto ergometer = std::make_shared<ErgolineP10>();
    const std::weak_ptr<ErgolineP10> heldByItsSecondCommand = ergometer;
    ergometer->requestLoad();
    ergometer.reset();
    EXPECT_FALSE(heldByItsSecondCommand.expired());
    EXPECT_TRUE(RunLoop::current().runUntil([&] { return heldByItsSecondCommand.expired(); }, 10s));
  }).join();
}

TYPED_TEST(P10ErgometerTest, RequestsThePressureAndCannotAbortIt) {
  this->ergometer->requestBP();
  this->ergometer->breakBP();
  this->port.advance(10s);
  EXPECT_THAT(this->sent(), ElementsAre("O\r"));
}

TYPED_TEST(P10ErgometerTest, SendsNothingForWhatTheProtocolLacks) {
  this->ergometer->clearBP();
  this->ergometer->requestSpO2();
  this->ergometer->deviceState();
  this->ergometer->setDeviceFunction(true, true);
  this->ergometer->emergencyStop();
  this->ergometer->emergencyStopRecover();
  this->ergometer->requestStatus();
  this->port.advance(10s);
  EXPECT_THAT(this->sent(), IsEmpty());
  EXPECT_THAT(this->host.calls(), IsEmpty());
}

TYPED_TEST(P10ErgometerTest, DropsEveryCommandWithoutAPort) {
  this->ergometer->setSerialPort(nullptr);
  this->ergometer->setLoad(75, 0);
  this->ergometer->requestLoad();
  this->ergometer->startDeivce();
  this->ergometer->stopStressDevice();
  this->ergometer->startBP();
  this->ergometer->requestBP();
  this->port.advance(1s);
  EXPECT_THAT(this->sent(), IsEmpty());
  EXPECT_THAT(this->host.calls(), IsEmpty());
  EXPECT_THAT(this->managerHost.calls(), IsEmpty());
}

TYPED_TEST(P10ErgometerTest, StoresThePressuresByTheirKey) {
  EXPECT_FALSE(this->ergometer->setBPValue("O", 120));
  EXPECT_FALSE(this->ergometer->setBPValue("B", 60));
  EXPECT_FALSE(this->ergometer->setBPValue("", 60));
  EXPECT_EQ(this->ergometer->p10SBP, 120.0F);
  EXPECT_EQ(this->ergometer->p10DBP, std::nullopt);
  EXPECT_TRUE(this->ergometer->setBPValue("U", 80));
  EXPECT_EQ(this->ergometer->p10DBP, 80.0F);
  for (const char* key : {"o", "u", "OU", "n"}) EXPECT_TRUE(this->ergometer->setBPValue(key, 1));
  EXPECT_EQ(this->ergometer->p10SBP, 120.0F);
  EXPECT_EQ(this->ergometer->p10DBP, 80.0F);
}

TYPED_TEST(P10ErgometerTest, TakesBothPressuresFromTheStartOfTheText) {
  this->receive("O120\r");
  EXPECT_EQ(this->ergometer->p10SBP, 120.0F);
  EXPECT_FALSE(this->ergometer->isBPCommand);
  EXPECT_THAT(this->managerHost.calls(), IsEmpty());
  this->receive("U080\r");
  EXPECT_THAT(this->managerHost.calls(), ElementsAre(bloodPressure(120, 120, 0)));
  EXPECT_EQ(this->ergometer->p10SBP, std::nullopt);
  EXPECT_EQ(this->ergometer->p10DBP, std::nullopt);
  EXPECT_TRUE(this->ergometer->isBPCommand);
  EXPECT_THAT(this->host.calls(), IsEmpty());
}

TYPED_TEST(P10ErgometerTest, ForgetsThePressuresAfterTheHostHasHeardOfThem) {
  std::vector<std::pair<std::optional<float>, std::optional<float>>> pressures;
  this->managerHost.onCall(
      [&](const RecordedCall&) { pressures.emplace_back(this->ergometer->p10SBP, this->ergometer->p10DBP); });
  this->receive("O120\rU080\r");
  EXPECT_THAT(pressures, ElementsAre(testing::Pair(120.0F, 120.0F)));
  EXPECT_EQ(this->ergometer->p10SBP, std::nullopt);
}

TYPED_TEST(P10ErgometerTest, ForgetsAStartedMeasurementWhenOnlyTheDiastolicCame) {
  this->ergometer->startBP();
  this->receive("U080\r");
  EXPECT_EQ(this->ergometer->p10DBP, 80.0F);
  EXPECT_FALSE(this->ergometer->isBPCommand);
  EXPECT_THAT(this->managerHost.calls(), IsEmpty());
}

TYPED_TEST(P10ErgometerTest, RepeatsThePressureForEveryLaterReception) {
  this->receive("O120\rU080\r");
  this->receive("x");
  this->receive("\r");
  EXPECT_THAT(this->managerHost.calls(), ElementsAre(bloodPressure(120, 120, 0), bloodPressure(120, 120, 0),
                                                     bloodPressure(120, 120, 0)));
}

TYPED_TEST(P10ErgometerTest, WaitsForTheFirstCarriageReturn) {
  this->receive("O");
  this->receive("120");
  this->receive("U");
  this->receive("080");
  EXPECT_EQ(this->ergometer->p10SBP, std::nullopt);
  EXPECT_THAT(this->managerHost.calls(), IsEmpty());
  this->receive("\r");
  EXPECT_THAT(this->managerHost.calls(), ElementsAre(bloodPressure(120, 120, 0)));
}

TYPED_TEST(P10ErgometerTest, ForgetsAStartedMeasurementWhenOnlyOnePressureCame) {
  this->ergometer->startBP();
  this->receive("O120\r");
  EXPECT_FALSE(this->ergometer->isBPCommand);
  EXPECT_THAT(this->managerHost.calls(), IsEmpty());
}

TYPED_TEST(P10ErgometerTest, ReportsASystolicThatTheHostStoredWithTheNextReply) {
  this->ergometer->setBPValue("O", 140);
  this->receive("U090\r");
  EXPECT_THAT(this->managerHost.calls(), ElementsAre(bloodPressure(140, 90, 0)));
}

TYPED_TEST(P10ErgometerTest, StopsTheProcessWhenAReplyComesBeforeThePressures) {
  this->ergometer->startBP();
  EXPECT_DEATH(this->receive("\r"), "tarsil: fatal error: P10 ergometer: .*both blood pressures");
}

TYPED_TEST(P10ErgometerTest, StopsTheProcessForMissingPressuresEvenWhenNobodyListens) {
  StressECGDeviceManager::share().delegate = nullptr;
  this->ergometer->kiv_delegate = nullptr;
  this->ergometer->startBP();
  EXPECT_DEATH(this->receive("x\r"), "tarsil: fatal error: P10 ergometer: .*both blood pressures");
}

TYPED_TEST(P10ErgometerTest, StopsTheProcessForAPressureThatIsNoNumberEvenWhenNobodyListens) {
  StressECGDeviceManager::share().delegate = nullptr;
  EXPECT_DEATH(this->receive("O80\r"), "the field .* is no number");
  EXPECT_DEATH(this->receive("U\r"), "the field .* is no number");
  EXPECT_DEATH(this->receive("\rO"), "the field .* is no number");
}

TYPED_TEST(P10ErgometerTest, ForgetsAReportedPairThatNobodyHeard) {
  StressECGDeviceManager::share().delegate = nullptr;
  this->receive("O120\rU080\r");
  EXPECT_EQ(this->ergometer->p10SBP, std::nullopt);
  EXPECT_EQ(this->ergometer->p10DBP, std::nullopt);
  EXPECT_TRUE(this->ergometer->isBPCommand);
}

TYPED_TEST(P10ErgometerTest, DropsAChunkThatIsNoText) {
  this->receive("O12");
  this->receive(
      "\xFF"
      "9\r");
  this->receive("0\r");
  EXPECT_EQ(this->ergometer->p10SBP, 120.0F);
}

TYPED_TEST(P10ErgometerTest, DropsBothHalvesOfACharacterThatWasSplit) {
  this->receive("O12");
  this->receive("\xE7\x93");
  this->receive("\xA6\r");
  EXPECT_FALSE(this->ergometer->result.contains('\r'));
  this->receive("0\r");
  EXPECT_EQ(this->ergometer->p10SBP, 120.0F);
}

TYPED_TEST(P10ErgometerTest, CountsACharacterOfSeveralBytesAsOne) {
  this->receive("瓦120O\r");
  EXPECT_EQ(this->ergometer->p10SBP, 120.0F);
}

TYPED_TEST(P10ErgometerTest, ReadsTheSameFromEveryChunking) {
  this->receiveByteByByte("O120\rU080\r");
  // The reply was complete with "U"; each of the four bytes behind it reports once more.
  EXPECT_EQ(this->managerHost.calls().size(), 5U);
  EXPECT_THAT(this->managerHost.calls(), testing::Each(bloodPressure(120, 120, 0)));
}

}  // namespace
}  // namespace tarsil
