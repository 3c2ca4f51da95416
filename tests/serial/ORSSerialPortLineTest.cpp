#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "doubles/ScriptedTerminal.hpp"
#include "doubles/scriptedDevice.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tests/helpers/RecordingPortDelegate.hpp"
#include "tests/helpers/ScriptedPort.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Call = doubles::ScriptedTerminal::Call;
using Selector = ORSSerialPortDelegate::Selector;

const std::vector<Call> callsOfOpening = {
    Call::open,          Call::clearStatusFlags, Call::getAttributes,
    Call::getAttributes, Call::setAttributes,  // settings
    Call::getModemLines, Call::setModemLines,  // output lines
    Call::getModemLines,                       // first poll
};

const std::vector<Call> callsOfClosing = {Call::getAttributes, Call::setAttributes, Call::setAttributes,
                                          Call::close};

// A port's line over a terminal that does what the test says, on virtual time.
class ORSSerialPortLineTest : public ::testing::Test {
 protected:
  ORSSerialPortLineTest() { port->setDelegate(client); }

  void open() {
    port.open();
    client.takeCalls();
    terminal.forgetCalls();
  }

  ScriptedPort port{ScriptedPort::Start::closed};
  doubles::ScriptedTerminal& terminal = port.terminal();
  RecordingPortDelegate client;
};

// Opening

TEST_F(ORSSerialPortLineTest, OpensInOrder) {
  port.open();
  EXPECT_TRUE(port->isOpen());
  EXPECT_EQ(terminal.openedPath(), "/dev/ttyScripted0");
  EXPECT_THAT(terminal.calls(), ElementsAreArray(callsOfOpening));
  EXPECT_THAT(client.calls(), ElementsAre(opened()));
}

TEST_F(ORSSerialPortLineTest, IsOpenAtOnceAndTellsItLater) {
  port->open();
  EXPECT_TRUE(port->isOpen());
  EXPECT_THAT(client.calls(), IsEmpty());
  port.time().settle();
  EXPECT_THAT(client.calls(), ElementsAre(opened()));
}

TEST_F(ORSSerialPortLineTest, AnnouncesThatItIsOpenAndThatItIsClosed) {
  std::vector<bool> seen;
  const auto observation = port->observe("isOpen", [&](const KeyChange&) { seen.push_back(port->isOpen()); });
  port.open();
  EXPECT_THAT(seen, ElementsAre(true));
  port.close();
  EXPECT_THAT(seen, ElementsAre(true, false));
}

TEST_F(ORSSerialPortLineTest, OpeningAnOpenPortDoesNothing) {
  open();
  port->open();
  port.time().settle();
  EXPECT_THAT(client.calls(), IsEmpty());
  EXPECT_THAT(terminal.calls(), IsEmpty());
}

TEST_F(ORSSerialPortLineTest, OpensWithTheStoredSettings) {
  port->setBaudRate(4800);
  port->setNumberOfDataBits(7);
  port->setNumberOfStopBits(2);
  port->setParity(ORSSerialPortParity::Even);
  port->setRTS(true);
  port->setDTR(true);
  port.open();
  EXPECT_EQ(terminal.attributes().speed, 4800U);
  EXPECT_EQ(terminal.attributes().modes.c_cflag & (CSIZE | CSTOPB | PARENB | PARODD),
            static_cast<tcflag_t>(CS7 | CSTOPB | PARENB));
  EXPECT_EQ(terminal.outputLines(), TIOCM_RTS | TIOCM_DTR);
}

TEST_F(ORSSerialPortLineTest, AFailedOpeningLeavesThePortClosed) {
  terminal.failNext(Call::open, EACCES);
  port.open();
  EXPECT_FALSE(port->isOpen());
  EXPECT_THAT(terminal.calls(), ElementsAre(Call::open));
  EXPECT_THAT(client.calls(), ElementsAre(failed(EACCES)));
  port.advance(1s);
  EXPECT_THAT(terminal.calls(), ElementsAre(Call::open));
}

TEST_F(ORSSerialPortLineTest, ASecondOpenerFailsWithTheLocksError) {
  open();
  const auto second = ORSSerialPort::serialPortWithDevice(port->device());
  RecordingPortDelegate other;
  second->setDelegate(other);
  second->open();
  EXPECT_FALSE(second->isOpen());
  EXPECT_THAT(other.calls(), ElementsAre(failed(EAGAIN)));
  EXPECT_TRUE(port->isOpen());
}

TEST_F(ORSSerialPortLineTest, DescriptorZeroIsNotOpen) {
  struct FirstDescriptor : doubles::ScriptedTerminal {
    Result<int> open(const std::string&) override { return 0; }
    Result<> close(int descriptor) override {
      EXPECT_EQ(descriptor, 0);
      ++closed;
      return {};
    }
    int closed = 0;
  };
  const auto zero = std::make_shared<FirstDescriptor>();
  const auto other = ORSSerialPort::serialPortWithDevice(doubles::scriptedDevice("ttyZero0", zero));
  RecordingPortDelegate unlucky;
  other->setDelegate(unlucky);
  other->open();
  EXPECT_FALSE(other->isOpen());
  EXPECT_THAT(unlucky.calls(), ElementsAre(failed(EBADF)));
  EXPECT_EQ(zero->closed, 1);
}

TEST_F(ORSSerialPortLineTest, APathThatIsNotAsciiCannotBeOpened) {
  const auto unreachable = std::make_shared<doubles::ScriptedTerminal>();
  const auto other = ORSSerialPort::serialPortWithDevice(doubles::scriptedDevice("tty串口0", unreachable));
  RecordingPortDelegate unlucky;
  other->setDelegate(unlucky);
  other->open();
  EXPECT_FALSE(other->isOpen());
  EXPECT_THAT(unlucky.calls(), ElementsAre(failed(EILSEQ)));
  EXPECT_THAT(unreachable->calls(), IsEmpty());
}

TEST_F(ORSSerialPortLineTest, FailedStatusFlagsAreReportedAndOpeningGoesOn) {
  terminal.failNext(Call::clearStatusFlags, EPERM);
  port.open();
  EXPECT_TRUE(port->isOpen());
  EXPECT_THAT(client.calls(), ElementsAre(failed(EPERM), opened()));
}

TEST_F(ORSSerialPortLineTest, AttributesThatCannotBeSavedAreReportedAndNotRestored) {
  terminal.failNext(Call::getAttributes, EINTR);
  port.open();
  EXPECT_THAT(client.takeCalls(), ElementsAre(failed(EINTR), opened()));
  port.close();
  EXPECT_THAT(client.calls(), ElementsAre(closed()));
  for (const auto& applied : terminal.applied()) EXPECT_EQ(applied.attributes.speed, 19200U);
}

TEST_F(ORSSerialPortLineTest, AnErrorWithinOpeningIsReportedAtOnceOnTheMainThread) {
  terminal.failNext(Call::open, EBUSY);
  port->open();
  EXPECT_THAT(client.calls(), ElementsAre(failed(EBUSY)));
}

TEST_F(ORSSerialPortLineTest, AClientThatClosesUponAnErrorWithinOpeningIsHeard) {
  terminal.failNext(Call::setAttributes, EINVAL);
  client.onCall([](ORSSerialPort& that, const RecordedCall& call) {
    if (call == failed(EINVAL)) that.close();
  });
  port.open();
  EXPECT_FALSE(port->isOpen());
  EXPECT_THAT(client.calls(), ElementsAre(failed(EINVAL), opened(), closed()));
  terminal.forgetCalls();
  port.advance(1s);
  EXPECT_THAT(terminal.calls(), IsEmpty()) << "nothing polls a closed port";
}

TEST_F(ORSSerialPortLineTest, APortDroppedByAnErrorWithinOpeningIsClosedInTheEnd) {
  auto dropped = ORSSerialPort::serialPortWithDevice(port->device());
  RecordingPortDelegate other;
  other.onCall([&](ORSSerialPort&, const RecordedCall&) { dropped.reset(); });
  dropped->setDelegate(other);
  terminal.failNext(Call::clearStatusFlags, EPERM);
  dropped->open();
  port.time().settle();
  EXPECT_FALSE(terminal.isOpen());
  EXPECT_EQ(terminal.strayCalls(), 0U);
}

// Settings

TEST_F(ORSSerialPortLineTest, ASettingIsAppliedAtOnceAndOnlyWhenItChanges) {
  open();
  port->setNumberOfStopBits(2);
  EXPECT_THAT(terminal.calls(), ElementsAre(Call::getAttributes, Call::setAttributes));
  EXPECT_NE(terminal.attributes().modes.c_cflag & CSTOPB, 0U);
  terminal.forgetCalls();
  port->setNumberOfStopBits(2);
  port->setBaudRate(19200);
  port->setNumberOfDataBits(8);
  port->setParity(static_cast<ORSSerialPortParity>(3));
  port->setShouldEchoReceivedData(false);
  EXPECT_THAT(terminal.calls(), IsEmpty());
}

TEST_F(ORSSerialPortLineTest, EachSettingIsApplied) {
  open();
  const auto changes = terminal.applied().size();
  port->setBaudRate(9600);
  port->setNumberOfDataBits(7);
  port->setParity(ORSSerialPortParity::Odd);
  port->setShouldEchoReceivedData(true);
  EXPECT_THAT(terminal.applied(), SizeIs(changes + 4));
  const TerminalAttributes now = terminal.attributes();
  EXPECT_EQ(now.speed, 9600U);
  EXPECT_EQ(now.modes.c_cflag & (CSIZE | PARENB | PARODD), static_cast<tcflag_t>(CS7 | PARENB | PARODD));
  EXPECT_NE(now.modes.c_lflag & ECHO, 0U);
}

TEST_F(ORSSerialPortLineTest, SixDataBitsGiveFive) {
  open();
  port->setNumberOfDataBits(6);
  EXPECT_EQ(terminal.attributes().modes.c_cflag & CSIZE, static_cast<tcflag_t>(CS5));
}

TEST_F(ORSSerialPortLineTest, ARejectedSpeedIsReported) {
  open();
  terminal.failNext(Call::setAttributes, EINVAL);
  port->setBaudRate(12345);
  EXPECT_THAT(client.calls(), ElementsAre(failed(EINVAL)));
  EXPECT_EQ(terminal.attributes().speed, 19200U);
  EXPECT_EQ(terminal.count(Call::setSpecialSpeed), 0U);
}

TEST_F(ORSSerialPortLineTest, ARejectedSpeedIsTriedThroughTheSpecialRequestWhenAllowed) {
  open();
  port->setAllowsNonStandardBaudRates(true);
  EXPECT_THAT(terminal.calls(), IsEmpty()) << "allowing it changes nothing yet";
  terminal.failNext(Call::setAttributes, EINVAL);
  port->setBaudRate(12345);
  EXPECT_THAT(client.calls(), IsEmpty());
  EXPECT_TRUE(terminal.applied().back().special);
  EXPECT_EQ(terminal.attributes().speed, 12345U);
}

TEST_F(ORSSerialPortLineTest, AFailedSpecialRequestIsReportedInPlaceOfTheFirstError) {
  open();
  port->setAllowsNonStandardBaudRates(true);
  terminal.failNext(Call::setAttributes, EINVAL);
  terminal.failNext(Call::setSpecialSpeed, ENOTTY);
  port->setBaudRate(12345);
  EXPECT_THAT(client.calls(), ElementsAre(failed(ENOTTY)));
}

TEST_F(ORSSerialPortLineTest, ASpeedThatIsTakenNeedsNoSpecialRequest) {
  port->setAllowsNonStandardBaudRates(true);
  port.open();
  EXPECT_EQ(terminal.count(Call::setSpecialSpeed), 0U);
}

TEST_F(ORSSerialPortLineTest, AttributesThatCannotBeReadAreReportedAndNothingIsApplied) {
  open();
  terminal.failNext(Call::getAttributes, EINTR);
  port->setBaudRate(9600);
  EXPECT_THAT(client.calls(), ElementsAre(failed(EINTR)));
  EXPECT_THAT(terminal.calls(), ElementsAre(Call::getAttributes));
}

TEST_F(ORSSerialPortLineTest, AFailedSettingAtOpeningIsReportedAndThePortIsOpen) {
  terminal.failNext(Call::setAttributes, EIO);
  port.open();
  EXPECT_TRUE(port->isOpen());
  EXPECT_THAT(client.calls(), ElementsAre(failed(EIO), opened()));
}

// The order is close, store, apply, open; closing ends later, so the port is closed in the end.
TEST_F(ORSSerialPortLineTest, ChangingFlowControlClosesAnOpenPort) {
  open();
  port->setUsesRTSCTSFlowControl(true);
  EXPECT_TRUE(port->isOpen());
  EXPECT_TRUE(terminal.attributes().rtsCtsFlowControl);
  port.time().settle();
  EXPECT_FALSE(port->isOpen());
  EXPECT_THAT(client.calls(), ElementsAre(closed()));
  EXPECT_EQ(terminal.count(Call::open), 0U);
}

TEST_F(ORSSerialPortLineTest, FlowControlOfAClosedPortIsAppliedAtOpening) {
  port->setUsesDTRDSRFlowControl(true);
  port->setUsesDCDOutputFlowControl(true);
  EXPECT_FALSE(port->isOpen());
  EXPECT_THAT(terminal.calls(), IsEmpty());
  port.open();
  EXPECT_TRUE(terminal.attributes().dtrDsrFlowControl);
  EXPECT_TRUE(terminal.attributes().dcdOutputFlowControl);
}

TEST_F(ORSSerialPortLineTest, FlowControlThatTheSystemLacksIsStoredAndReportedOnceForEachOpening) {
  terminal.failAlways(Call::setAttributes, ENOTSUP);
  terminal.failAlways(Call::setSpecialSpeed, ENOTSUP);
  port->setUsesDTRDSRFlowControl(true);
  port->setAllowsNonStandardBaudRates(true);
  port.open();
  EXPECT_TRUE(port->usesDTRDSRFlowControl());
  EXPECT_THAT(client.takeCalls(), ElementsAre(failed(ENOTSUP), opened()));

  terminal.forgetCalls();
  port->setBaudRate(4800);
  port->setNumberOfStopBits(2);
  EXPECT_EQ(terminal.count(Call::setAttributes), 2U);
  EXPECT_THAT(client.calls(), IsEmpty());
  terminal.failNext(Call::setSpecialSpeed, EINVAL);
  port->setBaudRate(9600);
  EXPECT_THAT(client.takeCalls(), ElementsAre(failed(EINVAL))) << "other errors are news";

  terminal.succeed(Call::setAttributes);
  port.close();
  terminal.failNext(Call::setAttributes, ENOTSUP);
  port.open();
  EXPECT_THAT(client.calls(), ElementsAre(closed(), failed(ENOTSUP), opened()));
}

TEST_F(ORSSerialPortLineTest, FlowControlThatTheSystemLacksIsReportedWhenAnOpenPortIsToUseIt) {
  open();
  terminal.failNext(Call::setAttributes, ENOTSUP);
  port->setUsesDCDOutputFlowControl(true);
  EXPECT_THAT(client.takeCalls(), ElementsAre(failed(ENOTSUP)));
  port.time().settle();
  EXPECT_THAT(client.calls(), ElementsAre(closed()));
}

TEST_F(ORSSerialPortLineTest, SettingTheSameFlowControlLeavesThePortOpen) {
  open();
  port->setUsesRTSCTSFlowControl(false);
  port->setUsesDTRDSRFlowControl(false);
  port->setUsesDCDOutputFlowControl(false);
  port.time().settle();
  EXPECT_TRUE(port->isOpen());
  EXPECT_THAT(terminal.calls(), IsEmpty());
}

// Modem lines

TEST_F(ORSSerialPortLineTest, DrivesOutputLinesWhenTheyChange) {
  open();
  port->setRTS(true);
  EXPECT_EQ(terminal.outputLines(), TIOCM_RTS);
  port->setDTR(true);
  EXPECT_EQ(terminal.outputLines(), TIOCM_RTS | TIOCM_DTR);
  port->setRTS(false);
  EXPECT_EQ(terminal.outputLines(), TIOCM_DTR);
  terminal.forgetCalls();
  port->setDTR(true);
  EXPECT_THAT(terminal.calls(), IsEmpty());
}

TEST_F(ORSSerialPortLineTest, OpeningDrivesTheOutputLinesAndLeavesTheOtherBitsAsTheyAre) {
  struct LinesOfItsOwn : doubles::ScriptedTerminal {
    Result<int> getModemLines(int) override { return TIOCM_RTS | TIOCM_RI | TIOCM_CTS; }
    Result<> setModemLines(int, int lines) override {
      written.push_back(lines);
      return {};
    }
    std::vector<int> written;
  };
  const auto device = std::make_shared<LinesOfItsOwn>();
  const auto other = ORSSerialPort::serialPortWithDevice(doubles::scriptedDevice("ttyLines0", device));
  other->setDTR(true);
  other->open();
  EXPECT_THAT(device->written, ElementsAre(TIOCM_DTR | TIOCM_RI | TIOCM_CTS));
  other->close();
}

TEST_F(ORSSerialPortLineTest, FailedOutputLinesAreReported) {
  open();
  terminal.failNext(Call::setModemLines, EIO);
  port->setRTS(true);
  EXPECT_TRUE(port->RTS());
  EXPECT_THAT(client.takeCalls(), ElementsAre(failed(EIO)));

  terminal.failNext(Call::getModemLines, EINTR);
  terminal.forgetCalls();
  port->setDTR(true);
  EXPECT_THAT(client.calls(), ElementsAre(failed(EINTR)));
  EXPECT_THAT(terminal.calls(), ElementsAre(Call::getModemLines))
      << "lines that are not known are not written back";
}

TEST_F(ORSSerialPortLineTest, PollsInputLinesEveryTenMilliseconds) {
  open();
  port.advance(10ms - 1ns);
  EXPECT_THAT(terminal.calls(), IsEmpty());
  port.advance(1ns);
  EXPECT_THAT(terminal.calls(), ElementsAre(Call::getModemLines));
  port.advance(100ms);
  EXPECT_EQ(terminal.count(Call::getModemLines), 11U);
}

TEST_F(ORSSerialPortLineTest, AnnouncesInputLinesInOrderOnTheMainThread) {
  open();
  std::vector<std::string> announced;
  std::vector<Observation> observations;
  for (const char* key : {"DCD", "DSR", "CTS"}) {
    observations.push_back(port->observe(key, [&](const KeyChange& change) {
      EXPECT_TRUE(RunLoop::isMainThread());
      announced.push_back(change.key);
    }));
  }
  terminal.setInputLines(TIOCM_CTS | TIOCM_DSR | TIOCM_CD);
  port.advance(10ms);
  EXPECT_THAT(announced, ElementsAre("CTS", "DSR", "DCD"));
  EXPECT_TRUE(port->CTS() && port->DSR() && port->DCD());

  announced.clear();
  terminal.setInputLines(TIOCM_CTS | TIOCM_CD);
  port.advance(20ms);
  EXPECT_THAT(announced, ElementsAre("DSR"));
  EXPECT_FALSE(port->DSR());
}

TEST_F(ORSSerialPortLineTest, InputLinesAreKnownRightAfterOpening) {
  terminal.setInputLines(TIOCM_CTS);
  port.open();
  EXPECT_TRUE(port->CTS());
}

TEST_F(ORSSerialPortLineTest, AFailedPollIsReportedEachTimeAndPollingGoesOn) {
  open();
  terminal.failAlways(Call::getModemLines, EPERM);
  port.advance(20ms);
  EXPECT_THAT(client.takeCalls(), ElementsAre(failed(EPERM), failed(EPERM)));
  terminal.succeed(Call::getModemLines);
  terminal.setInputLines(TIOCM_CTS);
  port.advance(10ms);
  EXPECT_TRUE(port->CTS());
  EXPECT_THAT(client.calls(), IsEmpty());
}

TEST_F(ORSSerialPortLineTest, AnUnpluggedDeviceIsReportedThenRemovedThenClosed) {
  open();
  port.remove();
  EXPECT_FALSE(port->isOpen());
  EXPECT_THAT(client.calls(), ElementsAre(failed(ENXIO), removed(), closed()));
  EXPECT_FALSE(terminal.isOpen());
  client.takeCalls();
  port.advance(1s);
  EXPECT_THAT(client.calls(), IsEmpty());
}

TEST_F(ORSSerialPortLineTest, AnUnpluggedDeviceIsRemovedThoughNobodyHearsOfErrors) {
  open();
  client.answerAllBut({Selector::serialPortDidEncounterError});
  port.remove();
  EXPECT_THAT(client.calls(), ElementsAre(removed(), closed()));
}

// Notes what it is asked and told.
class AskedDelegate final : public ORSSerialPortDelegate {
 public:
  bool respondsTo(Selector selector) const {
    if (selector == Selector::serialPortDidEncounterError) story.push_back("error?");
    if (selector == Selector::serialPortWasRemovedFromSystem) story.push_back("removed?");
    return true;
  }
  void serialPortDidEncounterError(ORSSerialPort&, const Error&) override { story.push_back("error"); }
  void serialPortWasRemovedFromSystem(ORSSerialPort&) override { story.push_back("removed"); }

  mutable std::vector<std::string> story;
};

TEST_F(ORSSerialPortLineTest, TheRemovalBeginsWhenTheDelegateHasHandledTheError) {
  open();
  const auto asked = std::make_shared<AskedDelegate>();
  port->setDelegate(asked);
  port.remove();
  EXPECT_THAT(asked->story, ElementsAre("error?", "error", "removed?", "removed"));
}

TEST_F(ORSSerialPortLineTest, ADeviceThatVanishesInTheMiddleOfAWriteIsReportedForTheWriteToo) {
  open();
  terminal.vanish();
  EXPECT_FALSE(port->sendData(hex("01")));
  EXPECT_THAT(client.calls(), ElementsAre(failed(ENXIO)));
  port.advance(10ms);
  EXPECT_THAT(client.calls(), ElementsAre(failed(ENXIO), failed(ENXIO), removed(), closed()));
}

TEST_F(ORSSerialPortLineTest, ADeviceThatComesBackCanBeOpenedAgain) {
  open();
  port.remove();
  port.open();
  EXPECT_FALSE(port->isOpen());
  EXPECT_THAT(client.takeCalls(), ElementsAre(failed(ENXIO), removed(), closed(), failed(ENOENT)));
  terminal.comeBack();
  port.open();
  EXPECT_TRUE(port->isOpen());
  port.deliver(hex("01"));
  EXPECT_THAT(client.calls(), ElementsAre(opened(), received(hex("01"))));
}

TEST_F(ORSSerialPortLineTest, AClientMayDropThePortWhenItHearsOfTheRemoval) {
  auto owned = ORSSerialPort::serialPortWithDevice(port->device());
  const std::weak_ptr<ORSSerialPort> last = owned;
  RecordingPortDelegate owner;
  owner.onCall([&](ORSSerialPort&, const RecordedCall& call) {
    if (call == removed()) owned.reset();
  });
  owned->setDelegate(owner);
  owned->open();
  port.time().settle();
  port.remove();
  EXPECT_THAT(owner.calls(), ElementsAre(opened(), failed(ENXIO), removed(), closed()));
  EXPECT_FALSE(terminal.isOpen());
  EXPECT_TRUE(last.expired());
}

// Sending

TEST_F(ORSSerialPortLineTest, SendsAllBytesInOneWrite) {
  open();
  EXPECT_TRUE(port->sendData(hex("02 05 02 00")));
  EXPECT_THAT(port.sent(), ElementsAre(hex("02 05 02 00")));
}

TEST_F(ORSSerialPortLineTest, SendingNothingWritesNothing) {
  open();
  EXPECT_TRUE(port->sendData({}));
  EXPECT_THAT(terminal.calls(), IsEmpty());
}

TEST_F(ORSSerialPortLineTest, WritesOnUntilAllIsTaken) {
  open();
  terminal.takeNextWrite(2);
  terminal.takeNextWrite(0);
  terminal.takeNextWrite(1);
  EXPECT_TRUE(port->sendData(hex("01 02 03 04 05")));
  EXPECT_THAT(port.sent(), ElementsAre(hex("01 02"), hex(""), hex("03"), hex("04 05")));
  EXPECT_THAT(client.calls(), IsEmpty());
}

TEST_F(ORSSerialPortLineTest, AFailedWriteIsReportedAndTheRestStaysUnsent) {
  open();
  terminal.takeNextWrite(2);
  terminal.onWrite([this](const Bytes&) { terminal.failNext(Call::write, EIO); });
  EXPECT_FALSE(port->sendData(hex("01 02 03")));
  EXPECT_THAT(port.sent(), ElementsAre(hex("01 02")));
  EXPECT_THAT(client.calls(), ElementsAre(failed(EIO)));
}

TEST_F(ORSSerialPortLineTest, ADuplicateThatCannotBeHadIsReported) {
  open();
  terminal.failNext(Call::duplicate, EMFILE);
  EXPECT_EQ(port->duplicateDescriptor(), -1);
  EXPECT_THAT(client.calls(), ElementsAre(failed(EMFILE)));
}

TEST_F(ORSSerialPortLineTest, AnErrorIsNotReportedToAClientThatDoesNotAnswer) {
  open();
  client.answerAllBut({Selector::serialPortDidEncounterError});
  terminal.failNext(Call::write, EIO);
  EXPECT_FALSE(port->sendData(hex("01")));
  EXPECT_THAT(client.calls(), IsEmpty());
}

// Receiving

TEST_F(ORSSerialPortLineTest, HandsOverEachChunkAsItWasRead) {
  open();
  port.deliver(hex("01 02 03"));
  port.deliverByteByByte(hex("04 05"));
  EXPECT_THAT(client.calls(),
              ElementsAre(received(hex("01 02 03")), received(hex("04")), received(hex("05"))));
}

TEST_F(ORSSerialPortLineTest, ReadsAtMost1024BytesAtOnce) {
  open();
  const Bytes much(2500, 0x55);
  port.deliver(much);
  const Bytes full(1024, 0x55);
  EXPECT_THAT(client.calls(), ElementsAre(received(full), received(full), received(Bytes(452, 0x55))));
}

TEST_F(ORSSerialPortLineTest, KeepsTheOrderOfMoreChunksThanTheSocketHolds) {
  open();
  std::vector<RecordedCall> expected;
  for (unsigned n = 0; n < 2000; ++n) {
    const Bytes chunk = {static_cast<std::uint8_t>(n >> 8U), static_cast<std::uint8_t>(n)};
    terminal.deliver(chunk);
    expected.push_back(received(chunk));
  }
  port.time().settle();
  EXPECT_THAT(client.calls(), ElementsAreArray(expected));
}

TEST_F(ORSSerialPortLineTest, AReadThatFailsIsNoNews) {
  open();
  terminal.failNext(Call::read, EINTR);
  port.deliver(hex("01"));
  EXPECT_THAT(client.calls(), ElementsAre(received(hex("01"))));
}

TEST_F(ORSSerialPortLineTest, BytesAreDroppedWhileNobodyAnswers) {
  open();
  client.answerAllBut({Selector::serialPortDidReceiveData});
  port.deliver(hex("01"));
  client.answerAllBut({});
  port.deliver(hex("02"));
  EXPECT_THAT(client.calls(), ElementsAre(received(hex("02"))));
}

TEST_F(ORSSerialPortLineTest, BytesOnTheirWayToADelegateThatDiesAreDropped) {
  open();
  terminal.deliver(hex("01"));
  client.drop();
  port.time().settle();
  EXPECT_THAT(client.calls(), IsEmpty());
}

TEST_F(ORSSerialPortLineTest, AClosedPortReadsNothing) {
  open();
  port.close();
  port.deliver(hex("01"));
  port.open();
  EXPECT_THAT(client.calls(), ElementsAre(closed(), opened()));
}

// Closing

TEST_F(ORSSerialPortLineTest, ClosesInOrder) {
  TerminalAttributes initial;
  initial.speed = 300;
  const auto owned = std::make_shared<doubles::ScriptedTerminal>(initial);
  const auto line = ORSSerialPort::serialPortWithDevice(doubles::scriptedDevice("ttyOwned0", owned));
  line->setDelegate(client);
  line->setUsesRTSCTSFlowControl(true);
  line->open();
  port.time().settle();
  owned->forgetCalls();
  const auto settings = owned->applied().size();

  EXPECT_TRUE(line->close());
  EXPECT_TRUE(line->isOpen()) << "closing ends later";
  port.time().settle();

  EXPECT_FALSE(line->isOpen());
  EXPECT_THAT(owned->calls(), ElementsAreArray(callsOfClosing));
  const auto applied = owned->applied();
  ASSERT_THAT(applied, SizeIs(settings + 2));
  EXPECT_EQ(applied[settings].when, Terminal::Apply::now);
  EXPECT_FALSE(applied[settings].attributes.rtsCtsFlowControl);
  EXPECT_EQ(applied[settings].attributes.speed, 19200U);
  EXPECT_EQ(applied[settings + 1].when, Terminal::Apply::afterOutputDrains);
  EXPECT_EQ(applied[settings + 1].attributes.speed, 300U);
  EXPECT_THAT(client.calls(), ElementsAre(opened(), closed()));
}

TEST_F(ORSSerialPortLineTest, ClosingTwiceClosesOnce) {
  open();
  EXPECT_TRUE(port->close());
  EXPECT_TRUE(port->close());
  port.time().settle();
  EXPECT_TRUE(port->close());
  port.time().settle();
  EXPECT_EQ(terminal.count(Call::close), 1U);
  EXPECT_THAT(client.calls(), ElementsAre(closed()));
}

TEST_F(ORSSerialPortLineTest, OpeningAPortThatIsClosingDoesNothing) {
  open();
  port->close();
  port->open();
  port.time().settle();
  EXPECT_FALSE(port->isOpen());
  EXPECT_THAT(client.calls(), ElementsAre(closed()));
}

TEST_F(ORSSerialPortLineTest, APortThatIsClosingStillSends) {
  open();
  port->close();
  EXPECT_TRUE(port->sendData(hex("01")));
  port.time().settle();
  EXPECT_FALSE(port->sendData(hex("02")));
  EXPECT_THAT(port.sent(), ElementsAre(hex("01")));
}

TEST_F(ORSSerialPortLineTest, ClosesWithoutADelegateThatAnswers) {
  open();
  client.answerAllBut({Selector::serialPortWasClosed});
  port.close();
  EXPECT_FALSE(port->isOpen());
  EXPECT_THAT(client.calls(), IsEmpty());
}

TEST_F(ORSSerialPortLineTest, OpensAgainAfterClosing) {
  open();
  for (int round = 0; round < 3; ++round) {
    port.close();
    port.open();
    port.deliver(hex("07"));
    EXPECT_THAT(client.takeCalls(), ElementsAre(closed(), opened(), received(hex("07"))));
  }
  EXPECT_EQ(terminal.strayCalls(), 0U);
}

TEST_F(ORSSerialPortLineTest, AClientMayOpenAgainWhenItHearsOfTheEnd) {
  open();
  client.onCall([](ORSSerialPort& that, const RecordedCall& call) {
    if (call == closed()) that.open();
  });
  port.close();
  EXPECT_TRUE(port->isOpen());
  EXPECT_THAT(client.calls(), ElementsAre(closed(), opened()));
}

TEST_F(ORSSerialPortLineTest, FailuresOfRestoringAreReportedAndClosingGoesOn) {
  open();
  terminal.failNext(Call::setAttributes, EINVAL);
  terminal.failNext(Call::setAttributes, EIO);
  port.close();
  EXPECT_THAT(client.calls(), ElementsAre(failed(EINVAL), failed(EIO), closed()));
  EXPECT_FALSE(terminal.isOpen());
}

TEST_F(ORSSerialPortLineTest, AttributesThatCannotBeReadAtTheEndAreReportedAndTheSavedOnesRestored) {
  open();
  terminal.failNext(Call::getAttributes, EINTR);
  port.close();
  EXPECT_THAT(client.calls(), ElementsAre(failed(EINTR), closed()));
  EXPECT_EQ(terminal.applied().back().when, Terminal::Apply::afterOutputDrains);
}

TEST_F(ORSSerialPortLineTest, ADeviceThatVanishedBeforeClosingIsReportedOnce) {
  open();
  terminal.vanish();
  port.close();
  EXPECT_THAT(client.calls(), ElementsAre(failed(ENXIO), closed()));
}

TEST_F(ORSSerialPortLineTest, AFailedCloseIsReportedAndThePortStaysOpenWithADeadLine) {
  open();
  terminal.failNext(Call::close, EIO);
  port.close();
  EXPECT_TRUE(port->isOpen());
  EXPECT_THAT(client.takeCalls(), ElementsAre(failed(EIO)));

  EXPECT_FALSE(port->sendData(hex("01")));
  EXPECT_THAT(client.takeCalls(), ElementsAre(failed(EBADF)));
  port.close();
  port.advance(1s);
  EXPECT_THAT(client.calls(), IsEmpty());
  EXPECT_EQ(terminal.count(Call::close), 1U);
  EXPECT_EQ(terminal.strayCalls(), 0U) << "the number may be another file's by now";
}

TEST_F(ORSSerialPortLineTest, ADroppedPortRestoresAndClosesItsLineOnce) {
  auto dropped = ORSSerialPort::serialPortWithDevice(port->device());
  dropped->setDelegate(client);
  dropped->open();
  port.time().settle();
  client.takeCalls();
  terminal.forgetCalls();
  dropped.reset();
  port.time().settle();
  EXPECT_THAT(terminal.calls(), ElementsAreArray(callsOfClosing));
  EXPECT_THAT(client.calls(), IsEmpty()) << "there is no port to tell of";
}

TEST_F(ORSSerialPortLineTest, APortDroppedWhileItClosesStillTellsItsEnd) {
  auto dropped = ORSSerialPort::serialPortWithDevice(port->device());
  dropped->setDelegate(client);
  dropped->open();
  port.time().settle();
  terminal.forgetCalls();
  const std::weak_ptr<ORSSerialPort> last = dropped;
  dropped->close();
  dropped.reset();
  port.time().settle();
  EXPECT_THAT(client.calls(), ElementsAre(opened(), closed()));
  EXPECT_THAT(terminal.calls(), ElementsAreArray(callsOfClosing));
  EXPECT_TRUE(last.expired());
}

TEST_F(ORSSerialPortLineTest, ADelegateThatDiesBeforeTheEndHearsNothing) {
  open();
  port->close();
  client.drop();
  port.time().settle();
  EXPECT_FALSE(port->isOpen());
  EXPECT_THAT(client.calls(), IsEmpty());
}

}  // namespace
}  // namespace tarsil
