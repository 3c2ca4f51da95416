#include "tarsil/serial/ORSSerialPort.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "doubles/ScriptedTerminal.hpp"
#include "doubles/scriptedDevice.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/support/ScopedOverride.hpp"
#include "tests/helpers/PrintedLines.hpp"
#include "tests/helpers/RecordingPortDelegate.hpp"

namespace tarsil {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// What a port is while it is closed: no run loop, no clock, no descriptor.
class ORSSerialPortTest : public ::testing::Test {
 protected:
  static std::shared_ptr<ORSSerialPort> portNamed(const std::string& name) {
    return ORSSerialPort::serialPortWithDevice(
        doubles::scriptedDevice(name, std::make_shared<doubles::ScriptedTerminal>()));
  }

  /// Ports that the process held before.
  const std::ptrdiff_t others = std::ssize(ORSSerialPort::livePorts());
  std::shared_ptr<ORSSerialPort> port = portNamed("ttyUSB3");
};

TEST_F(ORSSerialPortTest, HasThePropertiesOfItsDevice) {
  EXPECT_EQ(port->path(), "/dev/ttyUSB3");
  EXPECT_EQ(port->name(), "ttyUSB3");
  EXPECT_EQ(port->description(), "ttyUSB3");
  EXPECT_EQ(port->device()->terminalName, "ttyUSB3");
}

TEST_F(ORSSerialPortTest, HasEmptyNamesWhereItsDeviceHasNone) {
  auto nameless = std::make_shared<SerialDevice>();
  nameless->terminal = std::make_shared<doubles::ScriptedTerminal>();
  const auto unknown = ORSSerialPort::serialPortWithDevice(nameless);
  EXPECT_EQ(unknown->path(), "");
  EXPECT_EQ(unknown->name(), "");
}

TEST_F(ORSSerialPortTest, BeginsClosedAt19200Baud8N1WithoutFlowControl) {
  EXPECT_FALSE(port->isOpen());
  EXPECT_EQ(port->delegate().lock(), nullptr);
  EXPECT_EQ(port->baudRate(), 19200U);
  EXPECT_FALSE(port->allowsNonStandardBaudRates());
  EXPECT_EQ(port->numberOfStopBits(), 1U);
  EXPECT_EQ(port->numberOfDataBits(), 8U);
  EXPECT_EQ(port->parity(), ORSSerialPortParity::None);
  EXPECT_FALSE(port->shouldEchoReceivedData());
  EXPECT_FALSE(port->usesRTSCTSFlowControl());
  EXPECT_FALSE(port->usesDTRDSRFlowControl());
  EXPECT_FALSE(port->usesDCDOutputFlowControl());
  EXPECT_FALSE(port->RTS());
  EXPECT_FALSE(port->DTR());
  EXPECT_FALSE(port->CTS());
  EXPECT_FALSE(port->DSR());
  EXPECT_FALSE(port->DCD());
}

TEST_F(ORSSerialPortTest, ASecondPortForADeviceIsANewOneThatIsEqual) {
  const auto second = ORSSerialPort::serialPortWithDevice(port->device());
  EXPECT_NE(second, port);
  EXPECT_EQ(*second, *port);
  EXPECT_EQ(second->hash(), port->hash());
}

TEST_F(ORSSerialPortTest, PortsOfDifferentPathsDiffer) {
  const auto other = portNamed("ttyUSB4");
  EXPECT_FALSE(*other == *port);
}

TEST_F(ORSSerialPortTest, NoDeviceGivesNoPort) {
  EXPECT_EQ(ORSSerialPort::serialPortWithDevice(nullptr), nullptr);
}

TEST_F(ORSSerialPortTest, LivePortsAreThoseThatSomebodyHolds) {
  auto second = portNamed("ttyUSB4");
  const auto third = portNamed("ttyUSB5");
  const auto livePorts = [others = others] {
    auto ports = ORSSerialPort::livePorts();
    ports.erase(ports.begin(), ports.begin() + others);
    return ports;
  };
  EXPECT_THAT(livePorts(), ElementsAre(port, second, third));
  second.reset();
  EXPECT_THAT(livePorts(), ElementsAre(port, third));
}

TEST_F(ORSSerialPortTest, ReadsADevicesProperties) {
  SerialDevice device;
  EXPECT_EQ(ORSSerialPort::bsdCalloutPathFromDevice(device), std::nullopt);
  EXPECT_EQ(ORSSerialPort::bsdDialinPathFromDevice(device), std::nullopt);
  EXPECT_EQ(ORSSerialPort::baseNameFromDevice(device), std::nullopt);
  EXPECT_EQ(ORSSerialPort::serviceTypeFromDevice(device), std::nullopt);
  EXPECT_EQ(ORSSerialPort::modemNameFromDevice(device), std::nullopt);
  EXPECT_EQ(ORSSerialPort::suffixFromDevice(device), std::nullopt);

  device.calloutPath = "/dev/cu.usbserial-7";
  device.dialinPath = "/dev/tty.usbserial-7";
  device.baseName = "usbserial-";
  device.clientType = "modem";
  device.terminalName = "usbserial-7";
  device.suffix = "7";
  EXPECT_EQ(ORSSerialPort::bsdCalloutPathFromDevice(device), "/dev/cu.usbserial-7");
  EXPECT_EQ(ORSSerialPort::bsdDialinPathFromDevice(device), "/dev/tty.usbserial-7");
  EXPECT_EQ(ORSSerialPort::baseNameFromDevice(device), "usbserial-");
  EXPECT_EQ(ORSSerialPort::serviceTypeFromDevice(device), "modem");
  EXPECT_EQ(ORSSerialPort::modemNameFromDevice(device), "usbserial-7");
  EXPECT_EQ(ORSSerialPort::suffixFromDevice(device), "7");
}

TEST_F(ORSSerialPortTest, IsFoundByCalloutOrDialinPath) {
  const auto registry = std::make_shared<VirtualDeviceRegistry>();
  auto device = std::make_shared<SerialDevice>(*port->device());
  device->calloutPath = "/dev/cu.one";
  device->dialinPath = "/dev/tty.one";
  registry->add(device);
  const ScopedOverride<SerialDeviceRegistry> only(registry);

  EXPECT_EQ(ORSSerialPort::serialPortWithPath("/dev/cu.one")->device(), device);
  EXPECT_EQ(ORSSerialPort::serialPortWithPath("/dev/tty.one")->path(), "/dev/cu.one");
  EXPECT_EQ(ORSSerialPort::serialPortWithPath("/dev/two"), nullptr);
  EXPECT_EQ(ORSSerialPort::serialPortWithPath(""), nullptr);
}

TEST_F(ORSSerialPortTest, HoldsItsDelegateWeakly) {
  RecordingPortDelegate client;
  port->setDelegate(client);
  EXPECT_NE(port->delegate().lock(), nullptr);
  client.drop();
  EXPECT_EQ(port->delegate().lock(), nullptr);
}

TEST_F(ORSSerialPortTest, AParityBeyondEvenIsNone) {
  port->setParity(ORSSerialPortParity::Even);
  port->setParity(static_cast<ORSSerialPortParity>(3));
  EXPECT_EQ(port->parity(), ORSSerialPortParity::None);
}

TEST_F(ORSSerialPortTest, KeepsNumbersAsTheyAre) {
  port->setBaudRate(0);
  port->setNumberOfStopBits(7);
  port->setNumberOfDataBits(6);
  EXPECT_EQ(port->baudRate(), 0U);
  EXPECT_EQ(port->numberOfStopBits(), 7U);
  EXPECT_EQ(port->numberOfDataBits(), 6U);
}

TEST_F(ORSSerialPortTest, AClosedPortSendsNothing) {
  EXPECT_FALSE(port->sendData(Bytes{1}));
  EXPECT_FALSE(port->sendData({}));
}

TEST_F(ORSSerialPortTest, ClosingAClosedPortDoesNothing) {
  EXPECT_TRUE(port->close());
}

TEST_F(ORSSerialPortTest, RemovalIsToldToTheDelegateOfAClosedPortToo) {
  RecordingPortDelegate client;
  port->setDelegate(client);
  port->cleanupAfterSystemRemoval();
  EXPECT_THAT(client.calls(), ElementsAre(removed()));
}

TEST_F(ORSSerialPortTest, RemovalIsNotToldToADelegateThatDoesNotAnswer) {
  RecordingPortDelegate client;
  client.answerAllBut({ORSSerialPortDelegate::Selector::serialPortWasRemovedFromSystem});
  port->setDelegate(client);
  port->cleanupAfterSystemRemoval();
  EXPECT_THAT(client.calls(), IsEmpty());
}

TEST_F(ORSSerialPortTest, CleanupWarnsAndIsARemoval) {
  RecordingPortDelegate client;
  port->setDelegate(client);
  const PrintedLines printed;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  port->cleanup();
#pragma GCC diagnostic pop
  EXPECT_THAT(
      printed.fixed(),
      ElementsAre("WARNING: Cleanup is deprecated and was never intended to be called publicly. You should "
                  "update your code to avoid calling this method."));
  EXPECT_THAT(client.calls(), ElementsAre(removed()));
}

TEST_F(ORSSerialPortTest, ADelegateMayDropThePortWithinARemoval) {
  const std::weak_ptr<ORSSerialPort> last = port;
  RecordingPortDelegate client;
  client.onCall([this](ORSSerialPort&, const RecordedCall&) { port.reset(); });
  port->setDelegate(client);
  port->cleanupAfterSystemRemoval();
  EXPECT_TRUE(last.expired());
}

struct Property {
  std::string key;
  std::function<void(ORSSerialPort&)> change;
  /// Whether the property has the value that `change` gave it.
  std::function<bool(const ORSSerialPort&)> isChanged;

  friend void PrintTo(const Property& property, std::ostream* stream) { *stream << property.key; }
};

class ORSSerialPortPropertyTest : public ORSSerialPortTest, public ::testing::WithParamInterface<Property> {};

TEST_P(ORSSerialPortPropertyTest, IsAnnouncedUnderItsOwnKeyWhenItChanges) {
  std::vector<std::string> announced;
  std::vector<Observation> observations;
  for (const char* key :
       {"delegate", "baudRate", "allowsNonStandardBaudRates", "numberOfStopBits", "numberOfDataBits",
        "parity", "shouldEchoReceivedData", "usesRTSCTSFlowControl", "usesDTRDSRFlowControl",
        "usesDCDOutputFlowControl", "RTS", "DTR", "CTS", "DSR", "DCD", "isOpen"}) {
    observations.push_back(port->observe(key, [&](const KeyChange& change) {
      EXPECT_EQ(change.kind, KeyChange::Kind::setting);
      EXPECT_TRUE(GetParam().isChanged(*port)) << "an observer sees the new value";
      announced.push_back(change.key);
    }));
  }
  GetParam().change(*port);
  EXPECT_THAT(announced, ElementsAre(GetParam().key));
  GetParam().change(*port);
  EXPECT_THAT(announced, ElementsAre(GetParam().key)) << "the same value again";
}

INSTANTIATE_TEST_SUITE_P(
    AllThatAClientSets, ORSSerialPortPropertyTest,
    ::testing::Values(
        Property{"baudRate", [](ORSSerialPort& port) { port.setBaudRate(9600); },
                 [](const ORSSerialPort& port) { return port.baudRate() == 9600; }},
        Property{"allowsNonStandardBaudRates",
                 [](ORSSerialPort& port) { port.setAllowsNonStandardBaudRates(true); },
                 &ORSSerialPort::allowsNonStandardBaudRates},
        Property{"numberOfStopBits", [](ORSSerialPort& port) { port.setNumberOfStopBits(2); },
                 [](const ORSSerialPort& port) { return port.numberOfStopBits() == 2; }},
        Property{"numberOfDataBits", [](ORSSerialPort& port) { port.setNumberOfDataBits(7); },
                 [](const ORSSerialPort& port) { return port.numberOfDataBits() == 7; }},
        Property{"parity", [](ORSSerialPort& port) { port.setParity(ORSSerialPortParity::Odd); },
                 [](const ORSSerialPort& port) { return port.parity() == ORSSerialPortParity::Odd; }},
        Property{"shouldEchoReceivedData", [](ORSSerialPort& port) { port.setShouldEchoReceivedData(true); },
                 &ORSSerialPort::shouldEchoReceivedData},
        Property{"usesRTSCTSFlowControl", [](ORSSerialPort& port) { port.setUsesRTSCTSFlowControl(true); },
                 &ORSSerialPort::usesRTSCTSFlowControl},
        Property{"usesDTRDSRFlowControl", [](ORSSerialPort& port) { port.setUsesDTRDSRFlowControl(true); },
                 &ORSSerialPort::usesDTRDSRFlowControl},
        Property{"usesDCDOutputFlowControl",
                 [](ORSSerialPort& port) { port.setUsesDCDOutputFlowControl(true); },
                 &ORSSerialPort::usesDCDOutputFlowControl},
        Property{"RTS", [](ORSSerialPort& port) { port.setRTS(true); }, &ORSSerialPort::RTS},
        Property{"DTR", [](ORSSerialPort& port) { port.setDTR(true); }, &ORSSerialPort::DTR}),
    [](const auto& property) { return property.param.key; });

TEST_F(ORSSerialPortTest, ADelegateIsAnnounced) {
  int announced = 0;
  const auto observation = port->observe("delegate", [&](const KeyChange&) { ++announced; });
  RecordingPortDelegate client;
  port->setDelegate(client);
  port->setDelegate(nullptr);
  EXPECT_EQ(announced, 2);
}

}  // namespace
}  // namespace tarsil
