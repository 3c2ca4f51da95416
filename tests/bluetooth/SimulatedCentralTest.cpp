#include "simulators/devices/SimulatedCentral.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "tarsil/drivers/vitals/MEDXINGSpO2.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tests/helpers/PrintedLines.hpp"
#include "tests/helpers/RecordingHost.hpp"
#include "tests/helpers/RelayingCentralDelegate.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using simulators::SimulatedCentral;
using testing::ElementsAre;
using testing::IsEmpty;

class SimulatedCentralTest : public testing::Test {
 protected:
  SimulatedCentralTest() {
    oximeter->kiv_delegate = host;
    oximeter->btManager = central;
    oximeter->handleDisconnect = false;
    central->setDelegate(relay);
  }

  PrintedLines printed;
  VirtualTime time;
  RecordingHost host;
  std::uint8_t saturation = 97;
  std::shared_ptr<SimulatedCentral> central = SimulatedCentral::create([this] { return saturation; });
  std::shared_ptr<MEDXINGSpO2> oximeter = std::make_shared<MEDXINGSpO2>();
  std::shared_ptr<RelayingCentralDelegate> relay = std::make_shared<RelayingCentralDelegate>(oximeter);
};

TEST_F(SimulatedCentralTest, PlaysAnOximeterInReach) {
  EXPECT_THAT(relay->heard, IsEmpty());
  time.advance(1s);
  EXPECT_THAT(relay->heard, ElementsAre("poweredOn", "discovered MEDXING-SpO2", "connected"));
  time.advance(1s);
  saturation = 96;
  time.advance(3s);
  EXPECT_THAT(host.calls(), ElementsAre(oxygenSaturation(97, 1), oxygenSaturation(96, 1)));
}

TEST_F(SimulatedCentralTest, ALostLinkComesBack) {
  time.advance(2s);
  relay->take();
  central->loseLink();
  EXPECT_THAT(relay->take(), ElementsAre("disconnected connectionTimeout"));
  saturation = 95;
  time.advance(3s);
  EXPECT_THAT(relay->take(), ElementsAre("discovered MEDXING-SpO2", "connected"));
  EXPECT_THAT(host.calls(), ElementsAre(oxygenSaturation(97, 1), oxygenSaturation(95, 1)));
}

TEST_F(SimulatedCentralTest, AConnectionEndsOnRequest) {
  oximeter->handleDisconnect = true;
  time.advance(1s);
  central->connect(oximeter->peripheral);
  time.advance(2s);
  relay->take();
  central->cancelPeripheralConnection(oximeter->peripheral);
  EXPECT_THAT(relay->heard, IsEmpty());
  time.settle();
  EXPECT_THAT(relay->heard, ElementsAre("disconnected"));
  host.takeCalls();
  saturation = 90;
  time.advance(5s);
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(SimulatedCentralTest, AnAttemptEndsOnRequest) {
  oximeter->handleDisconnect = true;
  time.advance(1s);
  relay->take();
  central->connect(oximeter->peripheral);
  EXPECT_EQ(oximeter->peripheral->state(), BluetoothPeripheralState::connecting);
  central->cancelPeripheralConnection(oximeter->peripheral);
  time.advance(5s);
  EXPECT_THAT(relay->heard, ElementsAre("disconnected"));
  central->cancelPeripheralConnection(oximeter->peripheral);
  time.advance(5s);
  EXPECT_THAT(relay->heard, ElementsAre("disconnected"));
}

TEST_F(SimulatedCentralTest, AConnectionAskedForWhileTheLastOneEndsIsMadeAfterIt) {
  oximeter->handleDisconnect = true;
  time.advance(1s);
  central->connect(oximeter->peripheral);
  time.advance(1s);
  relay->take();
  central->cancelPeripheralConnection(oximeter->peripheral);
  central->connect(oximeter->peripheral);
  time.advance(1s);
  EXPECT_THAT(relay->take(), ElementsAre("disconnected", "connected"));

  central->cancelPeripheralConnection(oximeter->peripheral);
  central->connect(oximeter->peripheral);
  central->cancelPeripheralConnection(oximeter->peripheral);
  time.advance(1s);
  EXPECT_THAT(relay->heard, ElementsAre("disconnected"));
}

TEST_F(SimulatedCentralTest, AnAttemptIsToldOnce) {
  oximeter->handleDisconnect = true;
  time.advance(1s);
  relay->take();
  central->connect(oximeter->peripheral);
  central->connect(oximeter->peripheral);
  time.advance(1s);
  EXPECT_THAT(relay->heard, ElementsAre("connected"));
}

TEST_F(SimulatedCentralTest, NothingHappensAfterItsEnd) {
  time.advance(2s);
  host.takeCalls();
  oximeter->btManager = nullptr;
  central = nullptr;
  saturation = 90;
  time.advance(5s);
  EXPECT_THAT(host.calls(), IsEmpty());
}

}  // namespace
}  // namespace tarsil
