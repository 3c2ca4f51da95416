// What every treadmill does with its port, and the ways to make one.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <memory>
#include <optional>

#include "TreadmillTest.hpp"
#include "tarsil/drivers/treadmill/LodeOEMTreadmill.hpp"
#include "tarsil/drivers/treadmill/LodeTreadmill.hpp"
#include "tarsil/drivers/treadmill/TM_400V2.hpp"
#include "tarsil/drivers/treadmill/TrackMaster.hpp"
#include "tarsil/support/Error.hpp"

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

template <class Model>
using TreadmillPortTest = TreadmillTest<Model>;

using Models = testing::Types<LodeTreadmill, LodeOEMTreadmill, TM_400V2, TrackMaster>;
TYPED_TEST_SUITE(TreadmillPortTest, Models);

TYPED_TEST(TreadmillPortTest, BecomesItsPortsDelegate) {
  EXPECT_EQ(this->treadmill->serialPort(), this->port.port());
  EXPECT_EQ(this->treadmill->protPath, this->port->path());
  EXPECT_EQ(this->port->delegate().lock().get(), this->treadmill.get());
  this->treadmill->setSerialPort(nullptr);
  EXPECT_EQ(this->treadmill->serialPort(), nullptr);
  EXPECT_EQ(this->treadmill->protPath, std::nullopt);
  EXPECT_EQ(this->port->delegate().lock().get(), this->treadmill.get()) << "nobody has taken the port over";
}

TYPED_TEST(TreadmillPortTest, TellsTheHostThatThePortOpenedAndVanished) {
  this->port.close();
  this->port.open();
  EXPECT_THAT(this->host.takeCalls(), ElementsAre(portWasOpened()));
  this->port.remove();
  EXPECT_THAT(this->host.calls(), ElementsAre(portWasRemoved()));
}

TYPED_TEST(TreadmillPortTest, CallsOnlyWhatTheHostAnswers) {
  this->host.answerOnly({});
  this->port.close();
  this->port.open();
  this->port.remove();
  EXPECT_THAT(this->host.calls(), IsEmpty());
}

TYPED_TEST(TreadmillPortTest, NeedsNoHost) {
  this->treadmill->kiv_delegate = nullptr;
  this->port.close();
  this->port.open();
  this->port.remove();
  EXPECT_FALSE(this->port->isOpen());
  EXPECT_THAT(this->host.calls(), IsEmpty());
}

TYPED_TEST(TreadmillPortTest, PrintsPortErrorsAndNothingElse) {
  this->port.terminal().failNext(doubles::ScriptedTerminal::Call::write, EIO);
  this->treadmill->startDeivce();
  this->port.advance({});
  EXPECT_THAT(this->printed.diagnostic(), ElementsAre(Error::posix(EIO, this->port->path()).description()));
  EXPECT_THAT(this->printed.fixed(), IsEmpty());
  EXPECT_THAT(this->host.calls(), IsEmpty());
}

TYPED_TEST(TreadmillPortTest, LeavesItsPortWithIt) {
  const std::weak_ptr<TypeParam> dropped = this->treadmill;
  this->treadmill.reset();
  EXPECT_TRUE(dropped.expired());
  this->port.deliver(hex("B1"));
  EXPECT_THAT(this->host.calls(), IsEmpty());
}

TYPED_TEST(TreadmillPortTest, IsMadeFromAnySettings) {
  const auto exercise = std::make_shared<TypeParam>(treadmillSettings());
  EXPECT_EQ(exercise->name, "treadmill");
  EXPECT_EQ(exercise->Treadmill_or_Ergometer, 1);

  const auto pressure = std::make_shared<TypeParam>(BPDeviceSettings{
      .BP = 9600, .databits = 8, .stopbits = 1, .parity = 0, .autoSend = false, .canStopBP = true});
  EXPECT_EQ(pressure->baud, 9600);
  EXPECT_EQ(pressure->name, std::nullopt);
  EXPECT_FALSE(pressure->autoSend);

  const auto saturation = std::make_shared<TypeParam>(
      SpO2DeviceSettings{.SpO2 = "oximeter", .baud = 9600, .databits = 8, .stopbits = 1, .parity = 0});
  EXPECT_EQ(saturation->name, "oximeter");
  EXPECT_EQ(saturation->canStopBP, std::nullopt);

  const auto plain = std::make_shared<TypeParam>();
  EXPECT_EQ(plain->baud, 0);
  for (const auto& device : {exercise, pressure, saturation, plain}) {
    EXPECT_EQ(device->requestSpeed, -1.0F);
    EXPECT_EQ(device->requestGrade, -1.0F);
    EXPECT_FALSE(device->isState);
    EXPECT_EQ(device->serialPort(), nullptr);
  }
}

// Commands of other devices reach a treadmill too: a host may call them on whatever it chose.
TYPED_TEST(TreadmillPortTest, IgnoresTheCommandsOfOtherDevices) {
  this->treadmill->setDeviceFunction(true, true);
  this->treadmill->clearBP();
  this->treadmill->startSpO2();
  this->treadmill->stopSpO2();
  this->treadmill->emergencyStop();
  this->treadmill->emergencyStopRecover();
  this->treadmill->requestStatus();
  this->port.advance(std::chrono::seconds(5));
  EXPECT_THAT(this->port.sent(), IsEmpty());
  EXPECT_THAT(this->host.calls(), IsEmpty());
}

}  // namespace
}  // namespace tarsil
