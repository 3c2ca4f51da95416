#include "tarsil/drivers/vitals/BPDevice.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <any>
#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"
#include "tarsil/serial/ORSSerialRequest.hpp"
#include "tests/helpers/FatalStop.hpp"
#include "tests/helpers/PrintedLines.hpp"
#include "tests/helpers/RecordingHost.hpp"
#include "tests/helpers/ScriptedPort.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* initialisationEcho = "INITR\n\r00000\n\r00000\n\r00000\n\r";
constexpr BPDeviceSettings settings = {
    .BP = 9600, .databits = 8, .stopbits = 1, .parity = 0, .autoSend = true, .canStopBP = true};

std::string record(const std::string& systolic, const std::string& diastolic) {
  return "1234A\n\r" + systolic + "\n\r" + diastolic + "\n\r+0095\n\r";
}

class BPDeviceTest : public testing::Test {
 protected:
  BPDeviceTest() {
    // Only a process of its own has a run loop of its own.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    tango->kiv_delegate = host;
    tango->setSerialPort(port);
  }

  std::vector<std::string> sent() const {
    std::vector<std::string> texts;
    for (const auto& bytes : port.sent()) texts.emplace_back(bytes.begin(), bytes.end());
    return texts;
  }
  void receive(std::string_view characters) { port.deliver(text(characters)); }
  void receiveByteByByte(std::string_view characters) { port.deliverByteByByte(text(characters)); }

  PrintedLines printed;
  ScriptedPort port;
  RecordingHost host;
  std::shared_ptr<BPDevice> tango = std::make_shared<BPDevice>(settings);
};

TEST_F(BPDeviceTest, IsMadeInEveryWayWithTheSameState) {
  const std::shared_ptr<BPDevice> monitors[] = {
      std::make_shared<BPDevice>(settings),
      std::make_shared<BPDevice>(
          SpO2DeviceSettings{.SpO2 = "x", .baud = 1, .databits = 8, .stopbits = 1, .parity = 0}),
      std::make_shared<BPDevice>(ExerciseDeviceSettings{.Treadmill = 0,
                                                        .name = "x",
                                                        .baud = 1,
                                                        .databits = 8,
                                                        .stopbits = 1,
                                                        .parity = 0,
                                                        .getWithBP_SpO2 = 0,
                                                        .setWithBP_SpO2 = 0,
                                                        .canStopBP = true,
                                                        .autoSend = true,
                                                        .actualLoad = true})};
  for (const auto& monitor : monitors) {
    EXPECT_EQ(monitor->taskJoint, "");
    EXPECT_TRUE(monitor->isINIT);
    EXPECT_TRUE(monitor->isBPcommand);
    EXPECT_EQ(monitor->type, std::nullopt);
  }
  EXPECT_EQ(monitors[0]->baud, 9600);
  EXPECT_EQ(monitors[0]->name, std::nullopt);
}

// Commands

TEST_F(BPDeviceTest, InitialisesTheMonitorBeforeItsFirstMeasurement) {
  tango->startBP();
  EXPECT_EQ(tango->type, Tango_Type::INIT);
  EXPECT_FALSE(tango->isINIT);
  receive("INIT\n\r");
  tango->startBP();
  EXPECT_EQ(tango->type, Tango_Type::START);
  receive("STRT\n\r");
  tango->startBP();
  EXPECT_THAT(sent(), ElementsAre("INIT\n\r", "STRT\n\r", "STRT\n\r"));
  EXPECT_THAT(printed.fixed(), ElementsAre("tango开始测量血压", "tango开始测量血压", "tango开始测量血压"));
}

TEST_F(BPDeviceTest, NotesACommandBeforeAndTheInitialisationAfterItIsSent) {
  port.terminal().onWrite([&](const Bytes&) {
    EXPECT_EQ(tango->type, Tango_Type::INIT);
    EXPECT_TRUE(tango->isINIT);
    EXPECT_THAT(printed.fixed(), IsEmpty());
  });
  tango->startBP();
  EXPECT_THAT(sent(), ElementsAre("INIT\n\r"));
  EXPECT_FALSE(tango->isINIT);
}

TEST_F(BPDeviceTest, InitialisesEachMonitorAnew) {
  tango->startBP();
  tango = std::make_shared<BPDevice>(settings);
  ScriptedPort other(port.time(), "ttyScripted1");
  tango->setSerialPort(other);
  tango->startBP();
  EXPECT_THAT(other.sent(), ElementsAre(text("INIT\n\r")));
}

TEST_F(BPDeviceTest, SendsEachCommandAndNotesIt) {
  tango->isBPcommand = false;
  tango->breakBP();
  EXPECT_EQ(tango->type, Tango_Type::BREAK);
  EXPECT_TRUE(tango->isBPcommand);
  EXPECT_THAT(sent(), ElementsAre("STOP\n\r"));
  receive("STOP\n\r");
  tango->requestBP();
  EXPECT_EQ(tango->type, Tango_Type::LAST);
  receive("DATA\n\r");
  tango->clearBP();
  EXPECT_EQ(tango->type, Tango_Type::CLEAR);
  EXPECT_THAT(sent(), ElementsAre("STOP\n\r", "DATA\n\r", "CLRR\n\r"));
  EXPECT_THAT(printed.fixed(), IsEmpty());
}

TEST_F(BPDeviceTest, WaitsForTheEchoBeforeItSendsTheNextCommand) {
  tango->breakBP();
  tango->requestBP();
  EXPECT_THAT(sent(), ElementsAre("STOP\n\r"));
  receiveByteByByte("noise STOP\n");
  EXPECT_THAT(sent(), ElementsAre("STOP\n\r"));
  receive("\r");
  EXPECT_THAT(sent(), ElementsAre("STOP\n\r", "DATA\n\r"));
}

TEST_F(BPDeviceTest, WaitsNoLongerThanASecondForTheEcho) {
  tango->breakBP();
  tango->requestBP();
  port.advance(999ms);
  EXPECT_THAT(sent(), ElementsAre("STOP\n\r"));
  port.advance(1ms);
  EXPECT_THAT(sent(), ElementsAre("STOP\n\r", "DATA\n\r"));
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(BPDeviceTest, ListensForTheEchoOfEachCommandAnew) {
  tango->breakBP();
  receive("STOP\n\r");
  tango->breakBP();
  const auto descriptors = port->packetDescriptors();
  ASSERT_THAT(descriptors, SizeIs(2));
  for (const auto& descriptor : descriptors) EXPECT_EQ(descriptor->packetData(), text("STOP\n\r"));
  const auto request = port->pendingRequest();
  ASSERT_NE(request, nullptr);
  EXPECT_EQ(request->dataToSend(), text("STOP\n\r"));
  EXPECT_EQ(request->timeoutInterval(), 1.0);
  EXPECT_EQ(request->responseDescriptor(), descriptors[1]);
  EXPECT_EQ(std::any_cast<std::string>(request->userInfo()), "tango");
  EXPECT_EQ(std::any_cast<std::string>(descriptors[1]->userInfo()), "tango");
}

TEST_F(BPDeviceTest, RequestsTheOxygenSaturationWithoutWaiting) {
  tango->breakBP();
  tango->requestSpO2();
  EXPECT_THAT(sent(), ElementsAre("STOP\n\r", "SPO2\n\r"));
  EXPECT_EQ(tango->type, Tango_Type::BREAK);
  EXPECT_THAT(port->packetDescriptors(), SizeIs(1));
}

TEST_F(BPDeviceTest, DropsEveryCommandWithoutAPort) {
  tango->setSerialPort(nullptr);
  tango->startBP();
  tango->startBP();
  tango->breakBP();
  tango->requestBP();
  tango->clearBP();
  tango->requestSpO2();
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_FALSE(tango->isINIT);
  EXPECT_EQ(tango->type, Tango_Type::CLEAR);
  EXPECT_THAT(printed.fixed(), SizeIs(2));
}

TEST_F(BPDeviceTest, SendsNothingForWhatTheMonitorLacks) {
  tango->setLoad(75, 0);
  tango->requestLoad();
  tango->startDeivce();
  tango->stopStressDevice();
  tango->deviceState();
  EXPECT_THAT(sent(), IsEmpty());
}

// Port

TEST_F(BPDeviceTest, BecomesItsPortsDelegate) {
  EXPECT_EQ(tango->protPath, port->path());
  EXPECT_EQ(port->delegate().lock().get(), tango.get());
  tango->setSerialPort(nullptr);
  EXPECT_EQ(tango->protPath, std::nullopt);
}

TEST_F(BPDeviceTest, TellsTheHostThatThePortOpenedAndVanished) {
  port.close();
  port.open();
  port.remove();
  EXPECT_THAT(host.calls(), ElementsAre(portWasOpened(), portWasRemoved()));
}

TEST_F(BPDeviceTest, PrintsPortErrorsOnly) {
  port.terminal().failNext(doubles::ScriptedTerminal::Call::write, EIO);
  tango->requestSpO2();
  port.advance({});
  EXPECT_THAT(printed.diagnostic(), SizeIs(1));
  EXPECT_THAT(host.calls(), IsEmpty());
}

// Initialisation echo

TEST_F(BPDeviceTest, ReportsTheInitialisationEcho) {
  receive(initialisationEcho);
  EXPECT_THAT(host.calls(), ElementsAre(bloodPressure(0, 0, 3)));
  EXPECT_EQ(tango->taskJoint, "");
}

TEST_F(BPDeviceTest, JoinsTheInitialisationEchoFromPieces) {
  receiveByteByByte(initialisationEcho);
  receive("INITR\n\r000");
  receive("00\n\r00000\n\r00000\n");
  EXPECT_THAT(host.calls(), ElementsAre(bloodPressure(0, 0, 3)));
  receive("\r");
  EXPECT_THAT(host.calls(), ElementsAre(bloodPressure(0, 0, 3), bloodPressure(0, 0, 3)));
}

TEST_F(BPDeviceTest, FindsTheInitialisationEchoBehindAnyText) {
  receive("INIT\n\rnoise 瓦");
  receive(std::string(5000, 'x') + initialisationEcho);
  EXPECT_THAT(host.calls(), ElementsAre(bloodPressure(0, 0, 3)));
  EXPECT_EQ(tango->taskJoint, "");
}

TEST_F(BPDeviceTest, OverlooksAnInitialisationEchoThatIsNotAtTheEnd) {
  receive(std::string(initialisationEcho) + "0");
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(BPDeviceTest, LeavesTheTypeAtTheInitialisationEcho) {
  tango->requestBP();
  receive(initialisationEcho);
  EXPECT_EQ(tango->type, Tango_Type::LAST);
  receive(record("+0120", "+0080"));
  EXPECT_THAT(host.calls(), ElementsAre(bloodPressure(0, 0, 3), bloodPressure(120, 80, 4)));
}

// Result record

struct Reading {
  const char* systolic;
  const char* diastolic;
  RecordedCall reported;
};

class BPDeviceReadingTest : public BPDeviceTest, public testing::WithParamInterface<Reading> {};

TEST_P(BPDeviceReadingTest, IsReportedWithItsStatus) {
  receive(record(GetParam().systolic, GetParam().diastolic));
  EXPECT_THAT(host.calls(), ElementsAre(GetParam().reported));
  EXPECT_EQ(tango->taskJoint, "");
  EXPECT_EQ(tango->type, Tango_Type::normal);
}

INSTANTIATE_TEST_SUITE_P(Statuses, BPDeviceReadingTest,
                         testing::Values(Reading{"+0120", "+0080", bloodPressure(120, 80, 0)},
                                         Reading{"+0223", "+0080", bloodPressure(223, 80, 0)},
                                         Reading{"+0224", "+0080", bloodPressure(224, 80, 1)},
                                         Reading{"+0230", "+0080", bloodPressure(230, 80, 1)},
                                         Reading{"+0230", "+0000", bloodPressure(230, 0, 1)},
                                         Reading{"+0230", "+0240", bloodPressure(230, 240, 1)},
                                         Reading{"+0120", "+0120", bloodPressure(120, 120, 2)},
                                         Reading{"+0080", "+0120", bloodPressure(80, 120, 2)},
                                         Reading{"+0120", "+0000", bloodPressure(120, 0, 3)},
                                         Reading{"+0000", "+0080", bloodPressure(0, 80, 3)},
                                         Reading{"-0000", "+0080", bloodPressure(-0.0F, 80, 3)},
                                         Reading{"-0120", "+0080", bloodPressure(-120, 80, 2)},
                                         Reading{"+0120", "-0080", bloodPressure(120, -80, 0)},
                                         Reading{"x0120", "+0080", bloodPressure(0, 80, 3)},
                                         Reading{"+0230", "x0080", bloodPressure(230, 0, 1)},
                                         Reading{" 0120", "+0080", bloodPressure(0, 80, 3)},
                                         Reading{"瓦0120", "+0080", bloodPressure(0, 80, 3)},
                                         Reading{"10120", "+0080", bloodPressure(10120, 80, 1)},
                                         Reading{".5000", ".2500", bloodPressure(0.5F, 0.25F, 0)}));

TEST_P(BPDeviceReadingTest, HasStatusFourWhenItWasFetched) {
  tango->requestBP();
  receive(record(GetParam().systolic, GetParam().diastolic));
  ASSERT_THAT(host.calls(), SizeIs(1));
  EXPECT_THAT(host.calls()[0].text, testing::EndsWith(", 4)"));
  EXPECT_EQ(tango->type, Tango_Type::normal);
}

TEST_F(BPDeviceTest, ReadsARecordWhateverItWasLastTold) {
  using enum Tango_Type;
  for (const auto type : {normal, INIT, START, BREAK, FINISH, CLEAR, SPO2}) {
    tango->type = type;
    receive(record("+0120", "+0080"));
    EXPECT_THAT(host.takeCalls(), ElementsAre(bloodPressure(120, 80, 0))) << rawValue(type);
    EXPECT_EQ(tango->type, normal);
  }
}

TEST_F(BPDeviceTest, HasTheFetchedStatusOnlyOnce) {
  tango->requestBP();
  receive(record("+0120", "+0080"));
  receive(record("+0120", "+0080"));
  EXPECT_THAT(host.calls(), ElementsAre(bloodPressure(120, 80, 4), bloodPressure(120, 80, 0)));
}

TEST_F(BPDeviceTest, PrintsTheRecord) {
  receive(record("+0120", "+0080"));
  EXPECT_THAT(printed.fixed(), ElementsAre("-------- 1234A\n\r+0120\n\r+0080\n\r+0095\n\r --------"));
}

TEST_F(BPDeviceTest, ReportsARecordWhenItIsComplete) {
  const std::string whole = record("+0120", "+0080");
  receiveByteByByte(whole.substr(0, whole.size() - 1));
  EXPECT_THAT(host.calls(), IsEmpty());
  receive(whole.substr(whole.size() - 1));
  EXPECT_THAT(host.calls(), ElementsAre(bloodPressure(120, 80, 0)));
}

class BPDeviceRecordShapeTest : public BPDeviceTest, public testing::WithParamInterface<const char*> {};

TEST_P(BPDeviceRecordShapeTest, IsARecord) {
  receive(GetParam());
  EXPECT_THAT(host.calls(), ElementsAre(bloodPressure(120, 80, 0)));
}

INSTANTIATE_TEST_SUITE_P(Shapes, BPDeviceRecordShapeTest,
                         testing::Values("123A\n\r+0120\n\r+0080\n\r+0095\n\r",
                                         "1234Z\n\r+0120\n\r+0080\n\r+0095\n\r",
                                         "1234A\n\r+0120\n\r+0080\n\r+0095\n\r0",
                                         // Blanks of other kinds part the last group from nothing.
                                         "1234A\n\r+0120\n\r+0080\n\r+0095\t "));

class BPDeviceOtherShapeTest : public BPDeviceTest, public testing::WithParamInterface<const char*> {};

TEST_P(BPDeviceOtherShapeTest, IsNoRecordAndStays) {
  receive(GetParam());
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_EQ(tango->taskJoint, GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, BPDeviceOtherShapeTest,
    testing::Values("12A\n\r+0120\n\r+0080\n\r+0095\n\r", "123a\n\r+0120\n\r+0080\n\r+0095\n\r",
                    "1234A\n+0120\n\r+0080\n\r+0095\n\r", "1234A\n\r0120\n\r+0080\n\r+0095\n\r",
                    "1234A\n\r+0120\n\r+0080\n\r+0095\n\r1", "123A\n\r+0120\n\r+0080\n\r+0095\n\r00",
                    "x123A\n\r+0120\n\r+0080\n\r+0095\n\r",
                    // Any character may stand before a pressure but a line end.
                    "1234A\n\r\n0120\n\r+0080\n\r+0095\n\r", "1234A\n\r\r0120\n\r+0080\n\r+0095\n\r",
                    "+0120\n\r+0080\n\r"));

TEST_F(BPDeviceTest, StopsTheProcessForARecordThatOtherBlanksPart) {
  EXPECT_DEATH(receive("1234A\r\n+0120\r\n+0080\r\n+0095\r\n"),
               "tarsil: fatal error: Tango: .* fewer than three");
  EXPECT_DEATH(receive("1234A\n\r+0120  +0080  +0095\t\t"),
               "tarsil: fatal error: Tango: .* fewer than three");
}

// Three groups are enough; the third is then the text up to the end, which is no number.
TEST_F(BPDeviceTest, ReadsARecordOfThreeGroups) {
  receive("1234A\n\r+0120\n\r+0080  +0095\t\t");
  EXPECT_THAT(host.calls(), ElementsAre(bloodPressure(120, 0, 3)));
}

TEST_F(BPDeviceTest, PrintsARecordThatItStopsFor) {
  const auto work = [this] { tango->processReply(text("1234A\r\n+0120\r\n+0080\r\n+0095\r\n")); };
  EXPECT_EQ(fatalReason(work), "Tango: a record of fewer than three groups");
  EXPECT_THAT(printed.fixed(), SizeIs(1));
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(BPDeviceTest, FindsNoRecordBehindOtherTextUntilTheEchoEmptiesIt) {
  receive("noise");
  receive(record("+0120", "+0080"));
  receive(record("+0121", "+0081"));
  receive(std::string(3000, 'x'));
  receive(record("+0122", "+0082"));
  EXPECT_THAT(host.calls(), IsEmpty());
  receive(initialisationEcho);
  receive(record("+0123", "+0083"));
  EXPECT_THAT(host.calls(), ElementsAre(bloodPressure(0, 0, 3), bloodPressure(123, 83, 0)));
}

TEST_F(BPDeviceTest, FindsNoRecordBehindTheEchoOfACommand) {
  tango->requestBP();
  receive("DATA\n\r");
  receive(record("+0120", "+0080"));
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(BPDeviceTest, DropsAChunkThatIsNoText) {
  const std::string whole = record("+0120", "+0080");
  receive(whole.substr(0, 10));
  receive("\xFF\n\r");
  receive(whole.substr(10));
  EXPECT_THAT(host.calls(), ElementsAre(bloodPressure(120, 80, 0)));
}

TEST_F(BPDeviceTest, EmptiesTheTextAfterTheHostHasHeardOfIt) {
  std::vector<std::string> texts;
  host.onCall([&](const RecordedCall&) { texts.push_back(tango->taskJoint); });
  receive(initialisationEcho);
  receive(record("+0120", "+0080"));
  EXPECT_THAT(texts, ElementsAre(initialisationEcho, record("+0120", "+0080")));
  EXPECT_EQ(tango->taskJoint, "");
}

TEST_F(BPDeviceTest, LetsTheHostDropItWithinAReport) {
  const std::weak_ptr<BPDevice> dropped = tango;
  host.onCall([&](const RecordedCall&) { tango.reset(); });
  receive(record("+0120", "+0080"));
  EXPECT_THAT(host.calls(), ElementsAre(bloodPressure(120, 80, 0)));
  EXPECT_TRUE(dropped.expired());
}

TEST_F(BPDeviceTest, PrintsARecordBeforeTheHostHearsOfIt) {
  host.onCall([&](const RecordedCall&) { EXPECT_THAT(printed.fixed(), SizeIs(1)); });
  receive(record("+0120", "+0080"));
  EXPECT_THAT(host.calls(), SizeIs(1));
}

TEST_F(BPDeviceTest, ForgetsATypeThatTheHostSetWithinTheReport) {
  host.onCall([this](const RecordedCall&) { tango->requestBP(); });
  receive(record("+0120", "+0080"));
  EXPECT_EQ(tango->type, Tango_Type::normal);
}

TEST_F(BPDeviceTest, NeedsNoHost) {
  tango->kiv_delegate = nullptr;
  receive(record("+0120", "+0080"));
  EXPECT_EQ(tango->taskJoint, "");
  receive(initialisationEcho);
  EXPECT_EQ(tango->taskJoint, "");
  host.answerOnly({});
  tango->kiv_delegate = host;
  receive(record("+0120", "+0080"));
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(BPDeviceTest, KeepsNoMoreTextThanCanCount) {
  for (int i = 0; i < 1000; ++i) receive("noise 瓦");
  EXPECT_LE(tango->taskJoint.size(), 30U * 4U);
}

// Oxygen saturation

TEST_F(BPDeviceTest, ReadsAnOxygenSaturationOnlyWhenItIsAwaited) {
  receive("0097%\n\r");
  EXPECT_THAT(host.calls(), IsEmpty());
  tango->taskJoint.clear();
  tango->type = Tango_Type::SPO2;
  receive("0097%\n\r");
  EXPECT_THAT(host.calls(), ElementsAre(oxygenSaturation(97, 1)));
  EXPECT_EQ(tango->type, Tango_Type::normal);
  EXPECT_EQ(tango->taskJoint, "0097%\n\r") << "the text stays";
}

TEST_F(BPDeviceTest, ForgetsATypeThatTheHostSetWithinASaturation) {
  tango->type = Tango_Type::SPO2;
  host.onCall([this](const RecordedCall&) { tango->requestBP(); });
  receive("0097%\n\r");
  EXPECT_THAT(sent(), ElementsAre("DATA\n\r"));
  EXPECT_EQ(tango->type, Tango_Type::normal);
}

TEST_F(BPDeviceTest, FindsNoRecordBehindASaturation) {
  tango->type = Tango_Type::SPO2;
  receive("0097%\n\r");
  receive(record("+0120", "+0080"));
  EXPECT_THAT(host.calls(), ElementsAre(oxygenSaturation(97, 1)));
}

TEST_F(BPDeviceTest, ReadsAnOxygenSaturationFromTheFirstReceptionOnly) {
  tango->type = Tango_Type::SPO2;
  receive("0097%\n");
  EXPECT_EQ(tango->type, Tango_Type::normal);
  receive("\r");
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(BPDeviceTest, ReadsARecordThatCameInsteadOfAnOxygenSaturation) {
  tango->type = Tango_Type::SPO2;
  receive(record("+0120", "+0080"));
  EXPECT_THAT(host.calls(), ElementsAre(bloodPressure(120, 80, 0)));
}

TEST_F(BPDeviceTest, KeepsAwaitingAnOxygenSaturationWhenAChunkWasNoText) {
  tango->type = Tango_Type::SPO2;
  receive("\xFF");
  EXPECT_EQ(tango->type, Tango_Type::SPO2);
}

}  // namespace
}  // namespace tarsil
