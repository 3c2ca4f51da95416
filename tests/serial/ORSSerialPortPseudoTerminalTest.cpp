#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <utility>

#include "simulators/lines/PseudoTerminal.hpp"
#include "tarsil/platform/SystemPlatform.hpp"
#include "tarsil/platform/linux/LinuxTerminal.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tests/helpers/HastyDriver.hpp"
#include "tests/helpers/RecordingPortDelegate.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using ::testing::AnyOf;
using ::testing::ElementsAre;

// A port over the system's own terminals; the test holds the other end.
class ORSSerialPortPseudoTerminalTest : public ::testing::Test {
 protected:
  ORSSerialPortPseudoTerminalTest() { port->setDelegate(client); }

  ~ORSSerialPortPseudoTerminalTest() override {
    port->close();
    EXPECT_TRUE(runUntil([this] { return !port->isOpen(); }));
  }

  static std::shared_ptr<ORSSerialPort> portAt(const std::string& path,
                                               std::shared_ptr<Terminal> system = systemTerminal()) {
    auto device = std::make_shared<SerialDevice>();
    device->calloutPath = path;
    device->terminalName = path;
    device->terminal = std::move(system);
    return ORSSerialPort::serialPortWithDevice(device);
  }

  // Other threads make conditions hold without waking the main loop, so it looks again every millisecond.
  static bool runUntil(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + 60s;
    while (!RunLoop::main().runUntil(condition, 1ms)) {
      if (std::chrono::steady_clock::now() > end) return false;
    }
    return true;
  }

  bool runUntilCalled(const RecordedCall& call) {
    return runUntil([&] {
      const RecordedCalls calls = client.calls();
      return std::find(calls.begin(), calls.end(), call) != calls.end();
    });
  }

  void open() {
    port->open();
    ASSERT_TRUE(runUntilCalled(opened()));
    client.takeCalls();
  }

  /// What the port sent, once it is so many bytes.
  Bytes readFromPort(std::size_t count) {
    Bytes all;
    runUntil([&] {
      const Bytes more = terminal.read();
      all.insert(all.end(), more.begin(), more.end());
      return all.size() >= count;
    });
    return all;
  }

  termios attributes() const {
    termios now{};
    EXPECT_EQ(tcgetattr(terminal.descriptor(), &now), 0);
    return now;
  }

  simulators::PseudoTerminal terminal;
  std::shared_ptr<ORSSerialPort> port = portAt(terminal.path());
  RecordingPortDelegate client;
};

TEST_F(ORSSerialPortPseudoTerminalTest, CarriesBytesBothWays) {
  open();
  EXPECT_TRUE(port->sendData(hex("00 11 0d 0a 1a ff")));
  EXPECT_EQ(hexText(readFromPort(6)), "00 11 0d 0a 1a ff");
  // One by one: the system may hand over longer pieces in parts.
  for (const std::uint8_t byte : hex("00 03 0d 13 ff")) {
    terminal.write(Bytes{byte});
    EXPECT_TRUE(runUntilCalled(received(Bytes{byte})));
  }
}

TEST_F(ORSSerialPortPseudoTerminalTest, AppliesItsSettingsAndRestoresTheOldOnes) {
  const termios before = attributes();
  port->setBaudRate(4800);
  open();
  const termios during = attributes();
  EXPECT_EQ(cfgetispeed(&during), static_cast<speed_t>(B4800));
  EXPECT_EQ(cfgetospeed(&during), static_cast<speed_t>(B4800));
  EXPECT_EQ(during.c_lflag & (ICANON | ISIG | ECHO), 0U);
  EXPECT_EQ(during.c_cc[VMIN], 1);
  EXPECT_EQ(during.c_cc[VTIME], 2);

  port->close();
  ASSERT_TRUE(runUntilCalled(closed()));
  const termios after = attributes();
  EXPECT_EQ(after.c_iflag, before.c_iflag);
  EXPECT_EQ(after.c_oflag, before.c_oflag);
  EXPECT_EQ(after.c_cflag, before.c_cflag);
  EXPECT_EQ(after.c_lflag, before.c_lflag);
  EXPECT_EQ(cfgetospeed(&after), cfgetospeed(&before));
}

// Another program left a mark parity, a flow control by bytes and an odd speed behind.
TEST_F(ORSSerialPortPseudoTerminalTest, IsNotMisledByForeignSettingsAndPutsThemBack) {
  termios foreign = attributes();
  foreign.c_cflag |= CMSPAR | PARODD;
  foreign.c_iflag |= IXOFF | IUCLC | INPCK;
  ASSERT_EQ(tcsetattr(terminal.descriptor(), TCSANOW, &foreign), 0);
  const auto found = systemTerminal()->getAttributes(terminal.descriptor());
  ASSERT_TRUE(found);
  TerminalAttributes before = *found;
  before.speed = 250000;
  ASSERT_TRUE(systemTerminal()->setSpecialSpeed(terminal.descriptor(), before));

  port->setParity(ORSSerialPortParity::Odd);
  open();
  EXPECT_EQ(attributes().c_cflag & (CMSPAR | PARODD), static_cast<tcflag_t>(PARODD));
  EXPECT_EQ(attributes().c_iflag, 0U);
  port->close();
  ASSERT_TRUE(runUntilCalled(closed()));
  EXPECT_THAT(client.calls(), ElementsAre(closed()));
  const auto after = systemTerminal()->getAttributes(terminal.descriptor());
  ASSERT_TRUE(after);
  EXPECT_EQ(after->speed, 250000U);
  EXPECT_EQ(after->modes.c_iflag, foreign.c_iflag);
  EXPECT_TRUE(after->stickParity);
}

TEST_F(ORSSerialPortPseudoTerminalTest, TakesEverySettingQuietly) {
  open();
  port->setNumberOfDataBits(7);
  port->setParity(ORSSerialPortParity::Even);
  port->setNumberOfStopBits(2);
  port->setRTS(true);
  port->setDTR(true);
  port->setBaudRate(115200);
  EXPECT_THAT(client.calls(), ElementsAre());
  EXPECT_FALSE(port->CTS() || port->DSR() || port->DCD());
}

TEST_F(ORSSerialPortPseudoTerminalTest, ASpeedBeyondTheTerminalLayersNeedsThePermission) {
  open();
  port->setBaudRate(76543);
  EXPECT_THAT(client.takeCalls(), ElementsAre(failed(EINVAL)));
  port->setAllowsNonStandardBaudRates(true);
  port->setBaudRate(76544);
  EXPECT_THAT(client.calls(), ElementsAre());
}

TEST_F(ORSSerialPortPseudoTerminalTest, ASecondOpenerIsKeptOut) {
  open();
  const auto second = portAt(terminal.path());
  RecordingPortDelegate other;
  second->setDelegate(other);
  second->open();
  EXPECT_FALSE(second->isOpen());
  // The advisory lock says the one, the terminal's exclusive mode (which spares root) the other.
  EXPECT_THAT(other.calls(), ElementsAre(AnyOf(failed(EAGAIN), failed(EBUSY))));

  port->close();
  ASSERT_TRUE(runUntilCalled(closed()));
  second->open();
  EXPECT_TRUE(second->isOpen());
  second->close();
  EXPECT_TRUE(runUntil([&] { return !second->isOpen(); }));
}

TEST_F(ORSSerialPortPseudoTerminalTest, ADuplicateReachesTheDeviceBesideThePort) {
  EXPECT_EQ(port->duplicateDescriptor(), -1);
  open();
  const int copy = port->duplicateDescriptor();
  ASSERT_GE(copy, 0);
  EXPECT_TRUE(port->sendData(hex("01")));
  EXPECT_EQ(write(copy, "\x02", 1), 1);
  EXPECT_EQ(hexText(readFromPort(2)), "01 02");
  close(copy);
  EXPECT_TRUE(port->sendData(hex("03")));
  EXPECT_EQ(hexText(readFromPort(1)), "03");
  EXPECT_THAT(client.calls(), ElementsAre());
}

// Whoever holds the copy may be another process, which nobody can ask to let go.
TEST_F(ORSSerialPortPseudoTerminalTest, ClosesAndOpensAgainWhileADuplicateLives) {
  const termios before = attributes();
  open();
  const int copy = port->duplicateDescriptor();
  ASSERT_GE(copy, 0);
  port->close();
  ASSERT_TRUE(runUntilCalled(closed()));
  EXPECT_THAT(client.takeCalls(), ElementsAre(closed()));
  EXPECT_EQ(attributes().c_lflag, before.c_lflag);
  EXPECT_EQ(attributes().c_cflag, before.c_cflag);
  EXPECT_EQ(port->duplicateDescriptor(), -1);

  open();
  terminal.write(hex("07"));
  EXPECT_TRUE(runUntilCalled(received(hex("07"))));
  EXPECT_THAT(client.calls(), ElementsAre(received(hex("07"))));
  close(copy);
}

TEST_F(ORSSerialPortPseudoTerminalTest, APathThatDoesNotExistIsReported) {
  const auto nowhere = portAt("/dev/no-such-terminal");
  RecordingPortDelegate other;
  nowhere->setDelegate(other);
  nowhere->open();
  EXPECT_THAT(other.calls(), ElementsAre(failed(ENOENT)));
}

TEST_F(ORSSerialPortPseudoTerminalTest, AnUnpluggedDeviceIsReportedThenRemovedThenClosed) {
  open();
  terminal.hangUp();
  ASSERT_TRUE(runUntilCalled(closed()));
  EXPECT_THAT(client.calls(), ElementsAre(failed(ENXIO), removed(), closed()));
}

TEST_F(ORSSerialPortPseudoTerminalTest, WritesMoreThanTheTerminalHoldsAndWaitsForIt) {
  open();
  Bytes much(300'000);
  for (std::size_t at = 0; at < much.size(); ++at) much[at] = static_cast<std::uint8_t>(at * 31 / 7);
  auto sent = std::async(std::launch::async, [&] { return port->sendData(much); });
  EXPECT_TRUE(readFromPort(much.size()) == much);
  EXPECT_TRUE(sent.get());
}

TEST_F(ORSSerialPortPseudoTerminalTest, ClosingWaitsForAWriterThatWaitsForItsDevice) {
  open();
  const Bytes much(300'000, 0x55);
  auto sent = std::async(std::launch::async, [&] { return port->sendData(much); });
  // The writer is under way, and the terminal is full before the end.
  pollfd output = {terminal.descriptor(), POLLIN, 0};
  ASSERT_EQ(poll(&output, 1, 60'000), 1);
  port->close();
  const Bytes arrived = readFromPort(much.size());
  EXPECT_TRUE(sent.get());
  EXPECT_EQ(arrived.size(), much.size());
  EXPECT_TRUE(runUntilCalled(closed()));
}

TEST_F(ORSSerialPortPseudoTerminalTest, ClosesBehindAWriteThatNobodyReads) {
  const auto stuck =
      portAt(terminal.path(), std::make_shared<LinuxTerminal>(std::make_shared<HastyDriver>()));
  stuck->setDelegate(client);
  const termios before = attributes();
  stuck->open();
  ASSERT_TRUE(runUntilCalled(opened()));
  client.takeCalls();
  auto sent = std::async(std::launch::async, [&] { return stuck->sendData(Bytes(300'000, 0x55)); });
  pollfd output = {terminal.descriptor(), POLLIN, 0};
  ASSERT_EQ(poll(&output, 1, 60'000), 1);
  stuck->close();
  ASSERT_TRUE(runUntilCalled(closed()));
  EXPECT_FALSE(sent.get());
  EXPECT_THAT(client.takeCalls(), ElementsAre(closed()));
  EXPECT_EQ(attributes().c_lflag, before.c_lflag);
  open();
}

TEST_F(ORSSerialPortPseudoTerminalTest, AWriterIsReleasedWhenItsDeviceVanishes) {
  open();
  const Bytes much(300'000, 0x55);
  auto sent = std::async(std::launch::async, [&] { return port->sendData(much); });
  pollfd output = {terminal.descriptor(), POLLIN, 0};
  ASSERT_EQ(poll(&output, 1, 60'000), 1);
  terminal.hangUp();
  EXPECT_FALSE(sent.get());
  ASSERT_TRUE(runUntilCalled(closed()));
  // The writer may report before, while or after polling does; or it meets a port that is closed already.
  RecordedCalls story = client.calls();
  EXPECT_GE(std::erase(story, failed(ENXIO)), 1U);
  EXPECT_THAT(story, ElementsAre(removed(), closed()));
}

}  // namespace
}  // namespace tarsil
