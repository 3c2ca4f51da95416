#include "tarsil/drivers/vitals/SpO2Device.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "tests/helpers/FatalStop.hpp"
#include "tests/helpers/PrintedLines.hpp"
#include "tests/helpers/RecordingHost.hpp"
#include "tests/helpers/ScriptedPort.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SpO2DeviceTest : public testing::Test {
 protected:
  SpO2DeviceTest() {
    oximeter->kiv_delegate = host;
    oximeter->setSerialPort(port);
  }

  PrintedLines printed;
  ScriptedPort port;
  RecordingHost host;
  std::shared_ptr<SpO2Device> oximeter = std::make_shared<SpO2Device>(
      SpO2DeviceSettings{.SpO2 = "oximeter", .baud = 9600, .databits = 8, .stopbits = 1, .parity = 0});
};

TEST_F(SpO2DeviceTest, SaysThatItIsMade) {
  EXPECT_THAT(printed.fixed(), ElementsAre("create SpO2"));
  EXPECT_EQ(oximeter->name, "oximeter");
  EXPECT_EQ(oximeter->baud, 9600);
}

TEST_F(SpO2DeviceTest, IsMadeInNoOtherWay) {
  EXPECT_EQ(fatalReason([] { SpO2Device(); }),
            "use of unimplemented initializer 'init()' for class 'SpO2Device'");
  EXPECT_EQ(
      fatalReason([] { SpO2Device(ExerciseDeviceSettings{}); }),
      "use of unimplemented initializer 'init(Treadmill:name:baud:databits:stopbits:parity:getWithBP_SpO2:"
      "setWithBP_SpO2:canStopBP:autoSend:actualLoad:)' for class 'SpO2Device'");
  EXPECT_EQ(
      fatalReason([] { SpO2Device(BPDeviceSettings{}); }),
      "use of unimplemented initializer 'init(BP:databits:stopbits:parity:autoSend:canStopBP:)' for class "
      "'SpO2Device'");
}

TEST_F(SpO2DeviceTest, StopsTheProcessWhenMadeInAnotherWay) {
  EXPECT_DEATH(SpO2Device(), "tarsil: fatal error: use of unimplemented initializer");
  EXPECT_DEATH(SpO2Device(ExerciseDeviceSettings{}), "tarsil: fatal error: use of unimplemented initializer");
  EXPECT_DEATH(SpO2Device(BPDeviceSettings{}), "tarsil: fatal error: use of unimplemented initializer");
}

TEST_F(SpO2DeviceTest, PrintsBytesThenText) {
  port.deliver(text("97%"));
  EXPECT_THAT(printed.diagnostic(), ElementsAre("393725", "97%"));
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(SpO2DeviceTest, SaysThatBytesAreNoText) {
  port.deliver(hex("ff 00"));
  EXPECT_THAT(printed.diagnostic(), ElementsAre("ff00", "no UTF-8 text"));
}

TEST_F(SpO2DeviceTest, SendsNothing) {
  oximeter->startDeivce();
  oximeter->stopStressDevice();
  oximeter->requestSpO2();
  oximeter->startSpO2();
  oximeter->stopSpO2();
  EXPECT_THAT(port.sent(), IsEmpty());
}

TEST_F(SpO2DeviceTest, BecomesItsPortsDelegate) {
  EXPECT_EQ(oximeter->protPath, port->path());
  EXPECT_EQ(port->delegate().lock().get(), oximeter.get());
  oximeter->setSerialPort(nullptr);
  EXPECT_EQ(oximeter->protPath, std::nullopt);
}

TEST_F(SpO2DeviceTest, KeepsTheEventsOfItsPortToItself) {
  port.close();
  port.open();
  port.remove();
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_THAT(printed.diagnostic(), IsEmpty());
}

}  // namespace
}  // namespace tarsil
