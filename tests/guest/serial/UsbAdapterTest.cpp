// A USB adapter as the kernel's own driver drives it. Run in the guest.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tarsil/platform/SystemPlatform.hpp"
#include "tarsil/platform/TerminalWrapper.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/serial/ORSSerialPortManager.hpp"
#include "tests/guest/serial/SerialGuest.hpp"
#include "tests/guest/serial/UsbAdapter.hpp"
#include "tests/helpers/ChildProcess.hpp"
#include "tests/helpers/RecordingPortDelegate.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The names of ports as they came ("+ttyUSB0") and went ("-ttyUSB0").
class News {
 public:
  News() {
    observation_ =
        systemSerialDeviceRegistry()->watch({.arrived = [this](const auto& devices) { note("+", devices); },
                                             .removed = [this](const auto& devices) { note("-", devices); }});
  }

  std::vector<std::string> take() { return std::exchange(news_, {}); }
  std::size_t count() const { return news_.size(); }
  std::shared_ptr<const SerialDevice> newest() const { return newest_; }

 private:
  void note(const std::string& sign, const SerialDeviceRegistry::Devices& devices) {
    for (const auto& device : devices) {
      news_.push_back(sign + device->terminalName.value());
      newest_ = device;
    }
  }

  std::vector<std::string> news_;
  std::shared_ptr<const SerialDevice> newest_;
  Observation observation_;
};

class UsbAdapterTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { daemon = std::make_unique<DeviceDaemon>(); }
  static void TearDownTestSuite() { daemon = nullptr; }

  // The driver takes its time to learn that an adapter is gone: it is closed before.
  ~UsbAdapterTest() override { close(); }

  /// A port of the device, opened by the client.
  void open(const std::shared_ptr<const SerialDevice>& device) {
    port = ORSSerialPort::serialPortWithDevice(device);
    port->setDelegate(client);
    port->open();
    ASSERT_TRUE(until([this] { return !client.calls().empty(); }));
    ASSERT_THAT(client.takeCalls(), ElementsAre(opened()));
  }

  /// The client hears of it, too.
  void close() {
    if (!port || !port->isOpen()) return;
    port->close();
    EXPECT_TRUE(until([this] { return isClosed(); }));
  }

  bool isClosed() {
    const RecordedCalls calls = client.calls();
    return !calls.empty() && calls.back() == closed();
  }

  std::string receivedBytes() {
    std::string all;
    for (const RecordedCall& call : client.calls()) {
      EXPECT_TRUE(call.text.starts_with("received(")) << call.text;
      all += (all.empty() ? "" : " ") + call.text.substr(9, call.text.size() - 10);
    }
    return all;
  }

  static inline std::unique_ptr<DeviceDaemon> daemon;
  std::optional<UsbAdapter> adapter;
  RecordingPortDelegate client;
  std::shared_ptr<ORSSerialPort> port;
};

TEST_F(UsbAdapterTest, ArrivesWithItsIdentityAndItsStablePath) {
  News news;
  adapter.emplace(0, "A1");
  ASSERT_TRUE(until([&] { return news.count() > 0; }));
  EXPECT_THAT(news.take(), ElementsAre("+ttyUSB0"));
  const SerialDevice& told = *news.newest();
  EXPECT_EQ(told.calloutPath, "/dev/ttyUSB0");
  ASSERT_TRUE(told.usb);
  EXPECT_EQ(told.usb->vendorId, "0403");
  EXPECT_EQ(told.usb->productId, "6001");
  EXPECT_EQ(told.usb->serialNumber, "A1");
  EXPECT_EQ(told.usb->manufacturer, "FTDI");
  EXPECT_EQ(told.usb->product, "FT232R USB UART");
  EXPECT_EQ(told.stablePath, "/dev/serial/by-id/usb-FTDI_FT232R_USB_UART_A1-if00-port0");
  // A host that looks later sees the same.
  EXPECT_EQ(adapter->device()->usb, told.usb);
  EXPECT_EQ(adapter->device()->stablePath, told.stablePath);
  adapter->pullOut();
  ASSERT_TRUE(until([&] { return news.count() > 0; }));
  EXPECT_THAT(news.take(), ElementsAre("-ttyUSB0"));
}

TEST_F(UsbAdapterTest, GoesByItsSocketWithoutASerialNumber) {
  News news;
  adapter.emplace(2, "");
  ASSERT_TRUE(until([&] { return news.count() > 0; }));
  EXPECT_EQ(news.newest()->stablePath, "/dev/serial/by-path/platform-vhci_hcd.0-usb-0:3:1.0-port0");
  adapter->pullOut();
}

TEST_F(UsbAdapterTest, IsForThoseWhoMayUseSerialPorts) {
  News news;
  adapter.emplace(0, "A1");
  ASSERT_TRUE(until([&] { return news.count() > 0; }));
  const auto said = [](const std::string& user) {
    ChildProcess program(otherProgram("/dev/ttyUSB0", user, "port"));
    EXPECT_TRUE(until([&] { return !program.lines().empty(); }));
    return program.lines().front();
  };
  EXPECT_EQ(said("operator"), opened().text);
  EXPECT_EQ(said("guest"), failed(EACCES).text);
}

TEST_F(UsbAdapterTest, IsToldOfByTheKernelWhereThereIsNoDaemon) {
  daemon = nullptr;
  {
    News news;
    adapter.emplace(0, "A1");
    ASSERT_TRUE(until([&] { return news.count() > 0; }));
    EXPECT_THAT(news.take(), ElementsAre("+ttyUSB0"));
    EXPECT_EQ(news.newest()->usb.value().serialNumber, "A1");
    adapter->pullOut();
    ASSERT_TRUE(until([&] { return news.count() > 0; }));
    EXPECT_THAT(news.take(), ElementsAre("-ttyUSB0"));
  }
  daemon = std::make_unique<DeviceDaemon>();
}

TEST_F(UsbAdapterTest, HasTheLineSettingsOfEveryModel) {
  adapter.emplace(0, "A1");
  expectLineSettingsOfEveryModel("ttyUSB0", [&] { return adapter->settings(); });
}

TEST_F(UsbAdapterTest, MakesASpeedThatHasNoCodeOnRequest) {
  adapter.emplace(0, "A1");
  open(adapter->device());
  port->setBaudRate(250000);
  EXPECT_THAT(client.takeCalls(), ElementsAre(failed(EINVAL)));
  port->setAllowsNonStandardBaudRates(true);
  port->setBaudRate(12345);
  EXPECT_TRUE(until([&] { return adapter->settings() == "12346 8N1"; })) << adapter->settings();
  port->setParity(ORSSerialPortParity::Odd);
  EXPECT_TRUE(until([&] { return adapter->settings() == "12346 8O1"; })) << adapter->settings();
  EXPECT_THAT(client.takeCalls(), IsEmpty());
  // Too fast for the chip; it keeps what it had.
  port->setBaudRate(100000000);
  EXPECT_THAT(client.takeCalls(), ElementsAre(failed(EINVAL)));
}

TEST_F(UsbAdapterTest, HasTheKindOfCharacterInItsChip) {
  adapter.emplace(0, "A1");
  open(adapter->device());
  port->setNumberOfDataBits(7);
  port->setParity(ORSSerialPortParity::Even);
  EXPECT_TRUE(until([&] { return adapter->settings() == "19200 7E1"; })) << adapter->settings();
  port->setNumberOfDataBits(8);
  port->setParity(ORSSerialPortParity::Odd);
  port->setNumberOfStopBits(2);
  EXPECT_TRUE(until([&] { return adapter->settings() == "19200 8O2"; })) << adapter->settings();
  EXPECT_THAT(client.takeCalls(), IsEmpty());
}

/// Counts how often the modem lines are asked for, and calls before each time.
class CountingTerminal : public TerminalWrapper {
 public:
  using TerminalWrapper::TerminalWrapper;

  Result<int> getModemLines(int descriptor) override {
    ++polls;
    return TerminalWrapper::getModemLines(descriptor);
  }

  std::atomic<int> polls = 0;
};

TEST_F(UsbAdapterTest, CarriesModemLinesOutAtOnceAndInWithinTwoPolls) {
  adapter.emplace(0, "A1");
  const auto terminal = std::make_shared<CountingTerminal>(systemTerminal());
  SerialDevice device = *adapter->device();
  device.terminal = terminal;
  open(std::make_shared<SerialDevice>(device));
  EXPECT_TRUE(until([&] { return adapter->last("outputs") == ""; }));

  port->setDTR(true);
  EXPECT_TRUE(until([&] { return adapter->last("outputs") == " dtr"; })) << adapter->last("outputs");
  port->setRTS(true);
  EXPECT_TRUE(until([&] { return adapter->last("outputs") == " dtr rts"; })) << adapter->last("outputs");
  port->setDTR(false);
  EXPECT_TRUE(until([&] { return adapter->last("outputs") == " rts"; })) << adapter->last("outputs");

  const auto inputs = [&] {
    return std::string(port->CTS() ? " cts" : "") + (port->DSR() ? " dsr" : "") + (port->DCD() ? " dcd" : "");
  };
  for (const std::string wanted : {" cts", " dsr", " dcd", " cts dsr dcd", ""}) {
    adapter->program().writeLine("inputs" + wanted);
    ASSERT_TRUE(adapter->program().waitForLine("inputs are set"));
    // One poll may be under way; the second after it begins when the first one's news were heard.
    const int before = terminal->polls;
    ASSERT_TRUE(until([&] { return terminal->polls >= before + 2; }));
    EXPECT_EQ(inputs(), wanted);
  }
  EXPECT_THAT(client.calls(), IsEmpty());
}

TEST_F(UsbAdapterTest, HearsSpoiledCharactersAsTheyCameAndABreakAsAZero) {
  adapter.emplace(0, "A1");
  open(adapter->device());
  for (const char* order : {"send 41 ff", "spoil parity 42", "spoil framing ff", "break", "send 44"}) {
    adapter->program().writeLine(order);
  }
  EXPECT_TRUE(until([this] { return receivedBytes() == "41 ff 42 ff 00 44"; })) << receivedBytes();
}

TEST_F(UsbAdapterTest, ClosesOnADeviceThatHasStoppedReading) {
  adapter.emplace(0, "A1");
  open(adapter->device());
  adapter->program().writeLine("hold on");
  auto sent = std::async(std::launch::async, [this] { return port->sendData(Bytes(1000000, 0x55)); });
  ASSERT_TRUE(until([&] { return sent.wait_for(Duration::zero()) != std::future_status::ready; }));
  close();
  EXPECT_FALSE(sent.get());
  EXPECT_THAT(client.takeCalls(), ElementsAre(closed()));
  adapter->program().writeLine("hold off");
  open(adapter->device());
  EXPECT_TRUE(port->sendData(hex("01 02 03")));
  EXPECT_TRUE(until([&] { return adapter->last("sent").ends_with("01 02 03"); }));
}

TEST_F(UsbAdapterTest, ThatIsPulledOutIsReportedThenRemovedThenClosed) {
  ORSSerialPortManager manager(systemSerialDeviceRegistry());
  adapter.emplace(0, "A1");
  ASSERT_TRUE(until([&] { return manager.availablePorts().size() == 3; }));
  const auto listed = manager.availablePorts().back();
  ASSERT_EQ(listed->name(), "ttyUSB0");
  News news;
  open(listed->device());
  adapter->pullOut();
  EXPECT_TRUE(until([this] { return isClosed(); }));
  ASSERT_TRUE(until([&] { return news.count() > 0 && manager.availablePorts().size() == 2; }));
  EXPECT_THAT(client.takeCalls(), ElementsAre(failed(ENXIO), removed(), closed()));
  EXPECT_THAT(news.take(), ElementsAre("-ttyUSB0"));
}

TEST_F(UsbAdapterTest, ComesBackUnderAnotherNameWhileSomebodyHoldsTheOldOne) {
  News news;
  adapter.emplace(0, "A1");
  ASSERT_TRUE(until([&] { return news.count() > 0; }));
  open(news.newest());
  const auto before = *news.newest();
  // As a watcher process has one.
  const int copy = port->duplicateDescriptor();
  ASSERT_GE(copy, 0);
  adapter->pullOut();
  EXPECT_TRUE(until([&] { return isClosed() && news.count() == 2; }));
  EXPECT_THAT(client.takeCalls(), ElementsAre(failed(ENXIO), removed(), closed()));
  adapter->plugIn();
  ASSERT_TRUE(until([&] { return news.count() == 3; }));
  EXPECT_THAT(news.take(), ElementsAre("+ttyUSB0", "-ttyUSB0", "+ttyUSB1"));
  EXPECT_EQ(news.newest()->usb, before.usb);
  EXPECT_EQ(news.newest()->stablePath, before.stablePath);
  open(news.newest());
  EXPECT_TRUE(port->sendData(hex("0a")));
  EXPECT_TRUE(until([&] { return adapter->last("sent ") == "0a"; }));
  ::close(copy);
}

TEST_F(UsbAdapterTest, BringsEveryByteInItsOrderAtEveryLatency) {
  adapter.emplace(0, "A1");
  open(adapter->device());
  // 16 bytes at a time, as replies come.
  std::string all;
  for (const char* milliseconds : {"1", "16"}) {
    std::ofstream("/sys/bus/usb-serial/devices/ttyUSB0/latency_timer") << milliseconds;
    ASSERT_TRUE(until([&] { return adapter->last("latency ") == milliseconds; }));
    for (std::uint8_t reply = 0; reply < 64; ++reply) {
      const std::string bytes = hexText(Bytes(16, reply));
      adapter->program().writeLine("send " + bytes);
      all += (all.empty() ? "" : " ") + bytes;
      ASSERT_TRUE(until([&] { return receivedBytes().size() >= all.size(); }));
    }
  }
  EXPECT_EQ(receivedBytes(), all);
}

// The rule that docs/performance.md gives to who administers a station.
TEST_F(UsbAdapterTest, KeepsBytesNoLongerWhereARuleOfTheMachineSaysSo) {
  daemon = nullptr;
  const std::filesystem::path rules = "/run/udev/rules.d";
  std::filesystem::create_directories(rules);
  std::ofstream(rules / "99-latency.rules")
      << R"(ACTION=="add", SUBSYSTEM=="usb-serial", DRIVER=="ftdi_sio", ATTR{latency_timer}="1")" << '\n';
  daemon = std::make_unique<DeviceDaemon>();
  adapter.emplace(0, "A1");
  EXPECT_TRUE(until([this] { return adapter->last("latency ") == "1"; })) << adapter->last("latency ");
  // With its rule.
  daemon = nullptr;
  daemon = std::make_unique<DeviceDaemon>();
}

TEST_F(UsbAdapterTest, TellsTwoOfAModelApart) {
  UsbAdapter first(0, "A1");
  UsbAdapter second(1, "B2");
  EXPECT_EQ(first.device()->terminalName, "ttyUSB0");
  EXPECT_EQ(second.device()->terminalName, "ttyUSB1");
  first.pullOut();
  second.pullOut();
  // In the other order, in the other's socket.
  second.plugIn();
  first.plugIn();
  EXPECT_EQ(second.device()->terminalName, "ttyUSB0");
  EXPECT_EQ(first.device()->terminalName, "ttyUSB1");
}

}  // namespace
}  // namespace tarsil
