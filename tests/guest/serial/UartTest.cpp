// A serial port of the machine's own, driven by the kernel's own driver. Run in the guest.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "tarsil/platform/PortAccess.hpp"
#include "tarsil/platform/SystemPlatform.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tests/guest/serial/SerialGuest.hpp"
#include "tests/guest/serial/Uart.hpp"
#include "tests/helpers/ChildProcess.hpp"
#include "tests/helpers/RecordingPortDelegate.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class UartTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { daemon = std::make_unique<DeviceDaemon>(); }
  static void TearDownTestSuite() { daemon = nullptr; }

  UartTest() { port->setDelegate(client); }
  ~UartTest() override { close(); }

  void open() {
    port->open();
    ASSERT_TRUE(until([this] { return !client.calls().empty(); }));
  }

  /// The client hears of it, too.
  void close() {
    if (!port->isOpen()) return;
    port->close();
    EXPECT_TRUE(until([this] { return !client.calls().empty() && client.calls().back() == closed(); }));
  }

  /// All bytes that the client heard, however they were cut; everything it heard must be bytes.
  std::string receivedBytes() {
    std::string all;
    for (const RecordedCall& call : client.calls()) {
      EXPECT_TRUE(call.text.starts_with("received(")) << call.text;
      all += (all.empty() ? "" : " ") + call.text.substr(9, call.text.size() - 10);
    }
    return all;
  }

  static inline std::unique_ptr<DeviceDaemon> daemon;
  Uart uart;
  RecordingPortDelegate client;
  std::shared_ptr<ORSSerialPort> port = ORSSerialPort::serialPortWithPath(Uart::path);
};

/// What another program says, once it has tried the port. It has it as long as the child runs.
std::string said(ChildProcess& program) {
  EXPECT_TRUE(until([&] { return !program.lines().empty(); }));
  return program.lines().front();
}

std::string saidBy(const std::string& user, const std::string& way) {
  ChildProcess program(otherProgram(Uart::path, user, way));
  return said(program);
}

TEST_F(UartTest, IsListedAndThePlaceholdersOfTheKernelAreNot) {
  const auto devices = systemSerialDeviceRegistry()->devices();
  std::vector<std::string> names;
  for (const auto& device : devices) names.push_back(device->terminalName.value());
  ASSERT_THAT(names, ElementsAre("ttyS0", "ttyS1"));
  const SerialDevice& uartDevice = *devices.back();
  EXPECT_EQ(uartDevice.calloutPath, Uart::path);
  EXPECT_EQ(uartDevice.usb, std::nullopt);
  EXPECT_EQ(uartDevice.stablePath, std::nullopt);
}

TEST_F(UartTest, CarriesEveryByteBothWays) {
  open();
  EXPECT_THAT(client.takeCalls(), ElementsAre(opened()));
  Bytes all;
  for (int byte = 0; byte < 256; ++byte) all.push_back(static_cast<std::uint8_t>(byte));
  uart.write(all);
  EXPECT_TRUE(until([&] { return receivedBytes() == hexText(all); })) << receivedBytes();
  EXPECT_TRUE(port->sendData(all));
  Bytes sent;
  EXPECT_TRUE(until([&] {
    const Bytes more = uart.read();
    sent.insert(sent.end(), more.begin(), more.end());
    return sent.size() >= all.size();
  }));
  EXPECT_EQ(hexText(sent), hexText(all));
}

TEST_F(UartTest, HasTheLineSettingsOfEveryModelInItsHardware) {
  expectLineSettingsOfEveryModel("ttyS1", &Uart::settings);
}

TEST_F(UartTest, HasEveryKindOfCharacterInItsHardware) {
  open();
  const auto set = [this](std::uint64_t bits, ORSSerialPortParity parity, std::uint64_t stopBits) {
    port->setNumberOfDataBits(bits);
    port->setParity(parity);
    port->setNumberOfStopBits(stopBits);
    return Uart::settings();
  };
  EXPECT_EQ(set(8, ORSSerialPortParity::None, 1), "19200 8N1");
  EXPECT_EQ(set(8, ORSSerialPortParity::Even, 1), "19200 8E1");
  EXPECT_EQ(set(7, ORSSerialPortParity::Odd, 1), "19200 7O1");
  EXPECT_EQ(set(7, ORSSerialPortParity::Even, 2), "19200 7E2");
  EXPECT_EQ(set(8, ORSSerialPortParity::None, 2), "19200 8N2");
  // Any number but 7 and 8 gives five bits.
  EXPECT_EQ(set(6, ORSSerialPortParity::None, 1), "19200 5N1");
  EXPECT_THAT(client.calls(), ElementsAre(opened()));
}

TEST_F(UartTest, TakesASpeedThatHasNoCodeOnRequestOnly) {
  open();
  client.takeCalls();
  port->setBaudRate(14400);
  EXPECT_THAT(client.takeCalls(), ElementsAre(failed(EINVAL)));
  EXPECT_EQ(Uart::settings(), "19200 8N1");
  port->setAllowsNonStandardBaudRates(true);
  port->setBaudRate(14401);
  EXPECT_THAT(client.takeCalls(), IsEmpty());
  // The divider that comes nearest.
  EXPECT_EQ(Uart::settings(), "14400 8N1");
  // Also where that is far off: the driver tells what it was asked for.
  port->setBaudRate(12345);
  EXPECT_THAT(client.takeCalls(), IsEmpty());
  EXPECT_EQ(Uart::settings(), "12800 8N1");
}

TEST_F(UartTest, ReportsASpeedThatTheHardwareCannotMake) {
  open();
  client.takeCalls();
  port->setBaudRate(9600);
  port->setBaudRate(230400);
  // The driver said yes and kept the speed before.
  EXPECT_THAT(client.takeCalls(), ElementsAre(failed(EINVAL)));
  EXPECT_EQ(Uart::settings(), "9600 8N1");
}

TEST_F(UartTest, HearsABreakAsAZero) {
  open();
  client.takeCalls();
  uart.sendBreak();
  EXPECT_TRUE(until([this] { return !client.calls().empty(); }));
  uart.write(hex("41"));
  EXPECT_TRUE(until([this] { return receivedBytes() == "00 41"; })) << receivedBytes();
}

TEST_F(UartTest, ClosesInTimeOnADeviceThatHasStoppedReading) {
  open();
  client.takeCalls();
  // More than everything between the port and the device holds.
  auto sent = std::async(std::launch::async, [this] { return port->sendData(Bytes(1000000, 0x55)); });
  ASSERT_TRUE(until([this] { return uart.read().size() > 0; }));
  // From here on it reads nothing.
  close();
  EXPECT_FALSE(sent.get());
  EXPECT_THAT(client.calls(), ElementsAre(closed()));
  // It takes the line up again where somebody else opens it.
  uart.read();
  client.takeCalls();
  open();
  EXPECT_TRUE(port->sendData(hex("01 02 03")));
  Bytes heard;
  EXPECT_TRUE(until([&] {
    const Bytes more = uart.read();
    heard.insert(heard.end(), more.begin(), more.end());
    return heard.size() >= 3 && hexText(heard).ends_with("01 02 03");
  }));
}

TEST_F(UartTest, IsForThoseWhoMayUseSerialPorts) {
  EXPECT_EQ(groupOf(Uart::path), "dialout");
  EXPECT_EQ(saidBy("operator", "port"), "opened()");
  EXPECT_EQ(saidBy("guest", "port"), failed(EACCES).text);
}

TEST_F(UartTest, KeepsASecondOpenerOut) {
  open();
  // One of the two locks is what each kind of program meets.
  EXPECT_EQ(saidBy("operator", "plain"), failed(EBUSY).text);
  EXPECT_EQ(saidBy("operator", "marked"), failed(EBUSY).text);
  EXPECT_EQ(saidBy("operator", "port"), failed(EBUSY).text);
  EXPECT_EQ(saidBy("root", "locked"), failed(EAGAIN).text);
  EXPECT_EQ(saidBy("root", "port"), failed(EAGAIN).text);
  // Nothing keeps out an administrator's program that asks for no lock.
  EXPECT_EQ(saidBy("root", "plain"), "opened()");
  EXPECT_THAT(client.calls(), ElementsAre(opened()));
  close();
  EXPECT_EQ(saidBy("operator", "plain"), "opened()");
  EXPECT_EQ(saidBy("root", "locked"), "opened()");
}

TEST_F(UartTest, IsRefusedWhileAnotherProgramHasIt) {
  {
    ChildProcess program(otherProgram(Uart::path, "operator", "locked"));
    ASSERT_EQ(said(program), "opened()");
    EXPECT_EQ(saidBy("operator", "port"), failed(EAGAIN).text);
    open();
    EXPECT_THAT(client.takeCalls(), ElementsAre(failed(EAGAIN)));
    EXPECT_THAT(programsHolding(Uart::path),
                ElementsAre("other-program (process " + std::to_string(program.pid()) + ")"));
  }
  {
    ChildProcess program(otherProgram(Uart::path, "operator", "marked"));
    ASSERT_EQ(said(program), "opened()");
    EXPECT_EQ(saidBy("operator", "port"), failed(EBUSY).text);
  }
  EXPECT_EQ(saidBy("operator", "port"), "opened()");
  open();
  EXPECT_THAT(client.calls(), ElementsAre(opened()));
}

}  // namespace
}  // namespace tarsil
