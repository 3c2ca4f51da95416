#include "tarsil/drivers/SerialDriver.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/drivers/treadmill/TM_400V2.hpp"
#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"
#include "tarsil/serial/ORSSerialRequest.hpp"
#include "tests/helpers/FatalStop.hpp"
#include "tests/helpers/ScriptedPort.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

std::shared_ptr<ORSSerialPacketDescriptor> packet(std::string_view bytes) {
  return std::make_shared<ORSSerialPacketDescriptor>(
      ORSSerialPacketDescriptor::FixedPacket{.packetData = hex(bytes)});
}

/// A driver of a host's own, which listens for packets and wants to know of the end.
class OwnDriver : public SerialDriver {
 public:
  std::vector<std::string> heard;

  void serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& /*data*/) override {
    heard.emplace_back("data");
  }
  void serialPortDidReceivePacket(ORSSerialPort& /*port*/, const Bytes& /*packet*/,
                                  const Descriptor& /*matchingDescriptor*/) override {
    heard.emplace_back("packet");
  }
  void serialPortWasClosed(ORSSerialPort& /*port*/) override { heard.emplace_back("closed"); }

 private:
  ORSSerialPortDelegateRef portDelegate() override { return itself(*this); }
};

/// A driver that does not say that it is one of its own.
class SilentHeir final : public OwnDriver {
 public:
  void serialPortWasOpened(ORSSerialPort& /*port*/) override {}
};

TEST(SerialDriverTest, ADriverThatNoSharedPointerOwnsStopsTheProcessWhenItGetsAPort) {
  const ScriptedPort port;
  OwnDriver driver;
  EXPECT_EQ(fatalReason([&] { driver.setSerialPort(port); }),
            "a driver becomes its port's delegate, so it must live in a std::shared_ptr");
  EXPECT_EQ(driver.serialPort(), nullptr);
  EXPECT_EQ(fatalReason([&] { driver.setSerialPort(nullptr); }), std::nullopt);
}

TEST(SerialDriverTest, ADriverHearsEveryCallThatItsOwnClassOverrides) {
  ScriptedPort port;
  const auto driver = std::make_shared<OwnDriver>();
  driver->setSerialPort(port);
  port->startListeningForPacketsMatchingDescriptor(packet("0d"));
  port.deliver(hex("0d"));
  port.close();
  EXPECT_THAT(driver->heard, testing::UnorderedElementsAre("data", "packet", "closed"));
}

TEST(SerialDriverTest, ADriverThatDoesNotHearOfTheEndKeepsItsRequests) {
  ScriptedPort port;
  const auto request = std::make_shared<ORSSerialRequest>(
      ORSSerialRequest::WithDescriptor{.dataToSend = hex("01"), .responseDescriptor = packet("02")});
  const auto treadmill = std::make_shared<TM_400V2>(ExerciseDeviceSettings{});
  treadmill->setSerialPort(port);
  port->sendRequest(request);
  port.close();
  EXPECT_EQ(port->pendingRequest(), request);

  const auto own = std::make_shared<OwnDriver>();
  own->setSerialPort(port);
  port.open();
  port.close();
  EXPECT_EQ(port->pendingRequest(), nullptr);
}

TEST(SerialDriverTest, ADriverThatDoesNotSayWhichClassItIsStopsTheProcessWhenItGetsAPort) {
  const ScriptedPort port;
  const auto driver = std::make_shared<SilentHeir>();
  EXPECT_EQ(
      fatalReason([&] { driver->setSerialPort(port); }),
      "a delegate of class tarsil::(anonymous namespace)::SilentHeir was handed over as "
      "tarsil::(anonymous namespace)::OwnDriver, which does not tell what its own class overrides: hand it "
      "over as its own class, or say which one with tarsil::answering<Host>(pointer)");
  EXPECT_EQ(driver->serialPort(), nullptr);
}

}  // namespace
}  // namespace tarsil
