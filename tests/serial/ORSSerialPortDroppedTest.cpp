#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include "doubles/ScriptedTerminal.hpp"
#include "doubles/scriptedDevice.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/serial/ORSSerialRequest.hpp"
#include "tests/helpers/RecordingPortDelegate.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using Call = doubles::ScriptedTerminal::Call;
using Selector = ORSSerialPortDelegate::Selector;

ORSSerialPort::Request request(const char* data, double timeout = 0) {
  return ORSSerialRequest::requestWithDataToSend(
      hex(data), {}, timeout,
      std::make_shared<ORSSerialPacketDescriptor>(
          ORSSerialPacketDescriptor::FixedPacket{.packetData = hex("a1")}));
}

struct Provocation {
  std::string name;
  /// Where the client lets go of its port: in the observer of a key, or in a call of its delegate; or else
  /// in a packet's evaluator.
  std::string key;
  std::optional<Selector> selector;
  std::function<void(ORSSerialPort&, doubles::ScriptedTerminal&)> act;
  bool beginsOpen = true;

  friend void PrintTo(const Provocation& provocation, std::ostream* stream) { *stream << provocation.name; }
};

// Wherever the library calls a client, the client may let go of its last reference to the port.
class ORSSerialPortDroppedTest : public testing::TestWithParam<Provocation> {
 protected:
  void drop() {
    if (!port) return;
    port.reset();
    isHeldMeanwhile = !last.expired();
  }

  VirtualTime time;
  const std::shared_ptr<doubles::ScriptedTerminal> terminal = std::make_shared<doubles::ScriptedTerminal>();
  std::shared_ptr<ORSSerialPort> port =
      ORSSerialPort::serialPortWithDevice(doubles::scriptedDevice("ttyDropped0", terminal));
  const std::weak_ptr<ORSSerialPort> last = port;
  ORSSerialPort::Descriptor evaluated = std::make_shared<ORSSerialPacketDescriptor>(
      ORSSerialPacketDescriptor::Evaluated{.maximumPacketLength = 1, .responseEvaluator = [this](ByteView) {
                                             drop();
                                             return false;
                                           }});
  RecordingPortDelegate client;
  bool isHeldMeanwhile = false;
};

TEST_P(ORSSerialPortDroppedTest, IsHeldWhileItCallsItsClientAndEndsAfterwards) {
  const Provocation& provocation = GetParam();
  port->setDelegate(client);
  client.answerOnly({});
  if (provocation.beginsOpen) port->open();
  if (provocation.key.empty() && !provocation.selector)
    port->startListeningForPacketsMatchingDescriptor(evaluated);
  time.settle();

  const Observation observation = port->observe(provocation.key, [this](const KeyChange&) { drop(); });
  if (provocation.selector) client.answerOnly({*provocation.selector});
  client.onCall([this](ORSSerialPort&, const RecordedCall&) { drop(); });
  provocation.act(*port, *terminal);
  time.advance(2s);

  EXPECT_EQ(port, nullptr) << "the client was not called";
  EXPECT_TRUE(isHeldMeanwhile);
  EXPECT_TRUE(last.expired());
  EXPECT_FALSE(terminal->isOpen());
  EXPECT_EQ(terminal->strayCalls(), 0U);
}

const auto descriptor = std::make_shared<ORSSerialPacketDescriptor>(
    ORSSerialPacketDescriptor::FixedPacket{.packetData = hex("a1")});

using Port = ORSSerialPort;
using Device = doubles::ScriptedTerminal;

INSTANTIATE_TEST_SUITE_P(
    InAnObserver, ORSSerialPortDroppedTest,
    testing::Values(
        Provocation{"delegate", "delegate", {}, [](Port& port, Device&) { port.setDelegate(nullptr); }},
        Provocation{"opening", "isOpen", {}, [](Port& port, Device&) { port.open(); }, false},
        Provocation{"closing", "isOpen", {}, [](Port& port, Device&) { port.close(); }},
        Provocation{"baudRate", "baudRate", {}, [](Port& port, Device&) { port.setBaudRate(9600); }},
        Provocation{"allowsNonStandardBaudRates",
                    "allowsNonStandardBaudRates",
                    {},
                    [](Port& port, Device&) { port.setAllowsNonStandardBaudRates(true); }},
        Provocation{"flowControl",
                    "usesRTSCTSFlowControl",
                    {},
                    [](Port& port, Device&) { port.setUsesRTSCTSFlowControl(true); }},
        Provocation{"outputLine", "RTS", {}, [](Port& port, Device&) { port.setRTS(true); }},
        Provocation{
            "inputLine", "CTS", {}, [](Port&, Device& terminal) { terminal.setInputLines(TIOCM_CTS); }},
        Provocation{
            "sending", "pendingRequest", {}, [](Port& port, Device&) { port.sendRequest(request("01")); }},
        Provocation{"queueing",
                    "queuedRequests",
                    {},
                    [](Port& port, Device&) {
                      port.sendRequest(request("01"));
                      port.sendRequest(request("02"));
                    }},
        Provocation{"listening",
                    "packetDescriptors",
                    {},
                    [](Port& port, Device&) { port.startListeningForPacketsMatchingDescriptor(descriptor); }},
        Provocation{"listeningNoMore",
                    "packetDescriptorsAndBuffers",
                    {},
                    [](Port& port, Device&) { port.stopListeningForPacketsMatchingDescriptor(descriptor); }}),
    [](const auto& provocation) { return provocation.param.name; });

INSTANTIATE_TEST_SUITE_P(
    InAnEvaluator, ORSSerialPortDroppedTest,
    testing::Values(Provocation{
        "evaluator", "", {}, [](Port&, Device& terminal) { terminal.deliver(hex("01 02")); }}),
    [](const auto& provocation) { return provocation.param.name; });

INSTANTIATE_TEST_SUITE_P(
    InACall, ORSSerialPortDroppedTest,
    testing::Values(Provocation{"opened", "", Selector::serialPortWasOpened,
                                [](Port& port, Device&) { port.open(); }, false},
                    Provocation{"errorOfOpening", "", Selector::serialPortDidEncounterError,
                                [](Port& port, Device& terminal) {
                                  terminal.failNext(Call::clearStatusFlags, EPERM);
                                  port.open();
                                },
                                false},
                    Provocation{"errorOfSetting", "", Selector::serialPortDidEncounterError,
                                [](Port& port, Device& terminal) {
                                  terminal.failNext(Call::setAttributes, EINVAL);
                                  port.setBaudRate(12345);
                                }},
                    Provocation{"errorOfSending", "", Selector::serialPortDidEncounterError,
                                [](Port& port, Device& terminal) {
                                  terminal.failNext(Call::write, EIO);
                                  port.sendData(hex("01"));
                                }},
                    Provocation{"errorOfARequest", "", Selector::serialPortDidEncounterError,
                                [](Port& port, Device& terminal) {
                                  terminal.failNext(Call::write, EIO);
                                  port.sendRequest(request("01"));
                                }},
                    Provocation{"errorOfADuplicate", "", Selector::serialPortDidEncounterError,
                                [](Port& port, Device& terminal) {
                                  terminal.failNext(Call::duplicate, EMFILE);
                                  port.duplicateDescriptor();
                                }},
                    Provocation{"data", "", Selector::serialPortDidReceiveData,
                                [](Port&, Device& terminal) { terminal.deliver(hex("01")); }},
                    Provocation{"packet", "", Selector::serialPortDidReceivePacket,
                                [](Port& port, Device& terminal) {
                                  port.startListeningForPacketsMatchingDescriptor(descriptor);
                                  terminal.deliver(hex("a1"));
                                }},
                    Provocation{"response", "", Selector::serialPortDidReceiveResponse,
                                [](Port& port, Device& terminal) {
                                  port.sendRequest(request("01"));
                                  terminal.deliver(hex("a1"));
                                }},
                    Provocation{"timeout", "", Selector::serialPortRequestDidTimeout,
                                [](Port& port, Device&) { port.sendRequest(request("01", 1.0)); }},
                    Provocation{"removal", "", Selector::serialPortWasRemovedFromSystem,
                                [](Port&, Device& terminal) { terminal.vanish(); }},
                    Provocation{"end", "", Selector::serialPortWasClosed,
                                [](Port& port, Device&) { port.close(); }}),
    [](const auto& provocation) { return provocation.param.name; });

}  // namespace
}  // namespace tarsil
