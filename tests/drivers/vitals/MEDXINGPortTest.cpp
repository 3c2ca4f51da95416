#include "tarsil/drivers/vitals/MEDXINGPort.hpp"

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
using testing::SizeIs;

class MEDXINGPortTest : public testing::Test {
 protected:
  MEDXINGPortTest() {
    oximeter->kiv_delegate = host;
    oximeter->setSerialPort(port);
  }

  PrintedLines printed;
  ScriptedPort port;
  RecordingHost host;
  std::shared_ptr<MEDXINGPort> oximeter = std::make_shared<MEDXINGPort>(
      SpO2DeviceSettings{.SpO2 = "MEDXINGPort", .baud = 9600, .databits = 8, .stopbits = 1, .parity = 0});
};

TEST_F(MEDXINGPortTest, IsMadeAsAnOximeter) {
  EXPECT_EQ(oximeter->name, "MEDXINGPort");
  EXPECT_EQ(oximeter->baud, 9600);
  EXPECT_EQ(oximeter->befoSpO2Value, "");
}

TEST_F(MEDXINGPortTest, IsMadeInNoOtherWay) {
  EXPECT_EQ(fatalReason([] { MEDXINGPort(); }),
            "use of unimplemented initializer 'init()' for class 'MEDXINGPort'");
  EXPECT_EQ(
      fatalReason([] { MEDXINGPort(ExerciseDeviceSettings{}); }),
      "use of unimplemented initializer 'init(Treadmill:name:baud:databits:stopbits:parity:getWithBP_SpO2:"
      "setWithBP_SpO2:canStopBP:autoSend:actualLoad:)' for class 'MEDXINGPort'");
  EXPECT_EQ(
      fatalReason([] { MEDXINGPort(BPDeviceSettings{}); }),
      "use of unimplemented initializer 'init(BP:databits:stopbits:parity:autoSend:canStopBP:)' for class "
      "'MEDXINGPort'");
}

TEST_F(MEDXINGPortTest, StopsTheProcessWhenMadeInAnotherWay) {
  EXPECT_DEATH(MEDXINGPort(), "tarsil: fatal error: use of unimplemented initializer");
  EXPECT_DEATH(MEDXINGPort(ExerciseDeviceSettings{}),
               "tarsil: fatal error: use of unimplemented initializer");
  EXPECT_DEATH(MEDXINGPort(BPDeviceSettings{}), "tarsil: fatal error: use of unimplemented initializer");
}

TEST_F(MEDXINGPortTest, ReportsEachChangedSaturation) {
  port.deliver(hex("00 00 00 00 23 95 00 00 61 00"));
  port.deliver(hex("00 00 00 00 23 95 00 00 61 00"));
  EXPECT_THAT(host.calls(), ElementsAre(oxygenSaturation(97, 1)));
  EXPECT_EQ(oximeter->befoSpO2Value, "61");
  port.deliver(hex("00 00 00 00 23 95 00 00 7f 00"));
  port.deliver(hex("00 00 00 00 23 95 00 00 61 00"));
  EXPECT_THAT(host.calls(),
              ElementsAre(oxygenSaturation(97, 1), oxygenSaturation(-1, 1), oxygenSaturation(97, 1)));
}

TEST_F(MEDXINGPortTest, ReportsUpToAHundredPercent) {
  port.deliver(hex("00 00 00 00 23 95 00 00 64"));
  port.deliver(hex("00 00 00 00 23 95 00 00 65"));
  port.deliver(hex("00 00 00 00 23 95 00 00 00"));
  EXPECT_THAT(host.calls(),
              ElementsAre(oxygenSaturation(100, 1), oxygenSaturation(-1, 1), oxygenSaturation(0, 1)));
}

TEST_F(MEDXINGPortTest, ReportsEveryValueAboveAHundredAnew) {
  port.deliver(hex("00 00 00 00 23 95 00 00 65"));
  port.deliver(hex("00 00 00 00 23 95 00 00 ff"));
  EXPECT_THAT(host.calls(), ElementsAre(oxygenSaturation(-1, 1), oxygenSaturation(-1, 1)));
}

TEST_F(MEDXINGPortTest, ReportsNoneForAFrameThatEndsBeforeTheSaturation) {
  port.deliver(hex("00 00 00 00 23 95"));
  port.deliver(hex("00 00 00 00 23 95 61 61"));
  EXPECT_THAT(host.calls(), ElementsAre(oxygenSaturation(-1, 1)));
  EXPECT_EQ(oximeter->befoSpO2Value, "范围越界");
}

TEST_F(MEDXINGPortTest, DropsWhatIsNoMeasurement) {
  for (const char* chunk :
       {"23", "00 23 95 00", "00 00 00 00 23", "00 00 00 23 95 00 00 00 61", "00 00 00 00 95 23 00 00 61",
        "00 00 00 00 23 96 00 00 61", "00 00 00 00 33 95 00 00 61"}) {
    port.deliver(hex(chunk));
  }
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_EQ(oximeter->befoSpO2Value, "");
}

TEST_F(MEDXINGPortTest, LosesAFrameThatIsSplit) {
  port.deliver(hex("00 00 00 00 23"));
  port.deliver(hex("95 00 00 61 00"));
  port.deliverByteByByte(hex("00 00 00 00 23 95 00 00 61"));
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(MEDXINGPortTest, RemembersTheLastSaturationWhilePortsCloseAndOpen) {
  port.deliver(hex("00 00 00 00 23 95 00 00 61"));
  port.close();
  port.open();
  port.deliver(hex("00 00 00 00 23 95 00 00 61"));
  EXPECT_THAT(host.calls(), ElementsAre(oxygenSaturation(97, 1), portWasOpened()));
}

TEST_F(MEDXINGPortTest, RemembersASaturationBeforeTheHostHearsOfIt) {
  host.onCall([&](const RecordedCall&) { EXPECT_EQ(oximeter->befoSpO2Value, "61"); });
  port.deliver(hex("00 00 00 00 23 95 00 00 61"));
  EXPECT_THAT(host.calls(), SizeIs(1));
}

TEST_F(MEDXINGPortTest, RemembersASaturationThatNobodyHeard) {
  host.answerOnly({});
  port.deliver(hex("00 00 00 00 23 95 00 00 61"));
  host.answerAllBut({});
  port.deliver(hex("00 00 00 00 23 95 00 00 61"));
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_EQ(oximeter->befoSpO2Value, "61");
}

TEST_F(MEDXINGPortTest, SendsNothing) {
  oximeter->requestSpO2();
  oximeter->startSpO2();
  oximeter->stopSpO2();
  oximeter->startDeivce();
  oximeter->startBP();
  EXPECT_THAT(port.sent(), IsEmpty());
  EXPECT_THAT(printed.fixed(), IsEmpty());
}

TEST_F(MEDXINGPortTest, BecomesItsPortsDelegate) {
  EXPECT_EQ(oximeter->protPath, port->path());
  EXPECT_EQ(port->delegate().lock().get(), oximeter.get());
  oximeter->setSerialPort(nullptr);
  EXPECT_EQ(oximeter->protPath, std::nullopt);
}

TEST_F(MEDXINGPortTest, TellsTheHostThatThePortOpenedAndVanished) {
  port.close();
  port.open();
  port.remove();
  EXPECT_THAT(host.calls(), ElementsAre(portWasOpened(), portWasRemoved()));
  EXPECT_THAT(printed.diagnostic(), SizeIs(1)) << "the error that told of the loss";
}

}  // namespace
}  // namespace tarsil
