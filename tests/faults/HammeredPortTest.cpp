// A port whose device never stops sending, and a client that never stops asking: everything that a client can
// do, in an order that nobody planned, and the end of the port at every moment. On the machine's own clock
// and threads.

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "tarsil/platform/SystemPlatform.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/serial/ORSSerialRequest.hpp"
#include "tests/faults/StreamingDevice.hpp"
#include "tests/faults/runUntil.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;

constexpr std::string_view stream = "<a><b><c>";

std::shared_ptr<ORSSerialPort> portAt(const std::string& path) {
  SerialDevice device;
  device.calloutPath = path;
  device.terminalName = "hammered";
  device.terminal = systemTerminal();
  return ORSSerialPort::serialPortWithDevice(std::make_shared<SerialDevice>(std::move(device)));
}

/// Checks that it is called as it was promised, and does something within its calls.
class Client : public ORSSerialPortDelegate {
 public:
  std::function<void()> onCall = [] {};

  /// A port that is opened again while the news of its closing is on its way tells of both openings first.
  bool isOpen() const { return opened_ > closed_; }
  std::size_t received() const { return received_; }

  void serialPortWasOpened(ORSSerialPort& /*port*/) override {
    ++opened_;
    called();
  }
  void serialPortWasClosed(ORSSerialPort& /*port*/) override {
    ++closed_;
    EXPECT_LE(closed_, opened_);
    called();
  }
  void serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& data) override {
    received_ += data.size();
    called();
  }
  void serialPortDidReceivePacket(ORSSerialPort& /*port*/, const Bytes& packet,
                                  const Descriptor& /*descriptor*/) override {
    EXPECT_EQ(packet.size(), 3U);
    called();
  }
  void serialPortDidReceiveResponse(ORSSerialPort& /*port*/, const Bytes& /*response*/,
                                    const Request& /*request*/) override {
    called();
  }
  void serialPortRequestDidTimeout(ORSSerialPort& /*port*/, const Request& /*request*/) override { called(); }
  void serialPortDidEncounterError(ORSSerialPort& /*port*/, const Error& /*error*/) override { called(); }
  void serialPortWasRemovedFromSystem(ORSSerialPort& /*port*/) override { called(); }

 private:
  void called() {
    EXPECT_TRUE(RunLoop::isMainThread());
    onCall();
  }

  int opened_ = 0;
  int closed_ = 0;
  std::size_t received_ = 0;
};

std::shared_ptr<ORSSerialPacketDescriptor> packets() {
  return std::make_shared<ORSSerialPacketDescriptor>(ORSSerialPacketDescriptor::PrefixAndSuffixStrings{
      .prefixString = "<", .suffixString = ">", .maximumPacketLength = 8, .userInfo = {}});
}

/// A request that is answered at once, one that never is, or one that expects nothing.
std::shared_ptr<ORSSerialRequest> requestOf(std::uint32_t kind) {
  if (kind == 0) return ORSSerialRequest::requestWithDataToSend(text("?"), {}, 0.001, nullptr);
  return std::make_shared<ORSSerialRequest>(ORSSerialRequest::WithDescriptor{
      .dataToSend = text("?"),
      .userInfo = {},
      .timeoutInterval = 0.001,
      .responseDescriptor =
          kind == 1 ? packets()
                    : std::make_shared<ORSSerialPacketDescriptor>(ORSSerialPacketDescriptor::FixedPacket{
                          .packetData = text("never"), .userInfo = {}})});
}

/// What a client can ask of a port, one thing after the other.
class Hammer {
 public:
  Hammer(std::shared_ptr<ORSSerialPort> port, std::uint32_t seed) : port_(std::move(port)), random_(seed) {}

  void hit() {
    switch (below(14)) {
      case 0:
        return port_->open();
      case 1:
        port_->close();
        return;
      case 2:
        port_->sendData(text("hello"));
        return;
      case 3:
        requests_.push_back(requestOf(below(3)));
        port_->sendRequest(requests_.back());
        return;
      case 4:
        if (!requests_.empty()) port_->cancelQueuedRequest(requests_[below(requests_.size())]);
        return;
      case 5:
        return port_->cancelAllQueuedRequests();
      case 6:
        descriptors_.push_back(packets());
        return port_->startListeningForPacketsMatchingDescriptor(descriptors_.back());
      case 7:
        if (descriptors_.empty()) return;
        port_->stopListeningForPacketsMatchingDescriptor(descriptors_.back());
        return descriptors_.pop_back();
      case 8:
        observations_.push_back(
            port_->observe(below(2) == 0 ? "isOpen" : "pendingRequest",
                           [](const KeyChange& change) { EXPECT_FALSE(change.key.empty()); }));
        return;
      case 9:
        if (!observations_.empty()) observations_.erase(observations_.begin());
        return;
      case 10:
        return port_->setBaudRate(below(2) == 0 ? 9600 : 115200);
      case 11:
        return port_->setRTS(below(2) == 0);
      case 12:
        EXPECT_LE(port_->packetDescriptors().size(), descriptors_.size());
        static_cast<void>(port_->queuedRequests());
        static_cast<void>(port_->pendingRequest());
        return;
      default:
        RunLoop::main().processDue();
    }
  }

 private:
  std::uint32_t below(std::size_t bound) { return static_cast<std::uint32_t>(random_() % bound); }

  const std::shared_ptr<ORSSerialPort> port_;
  std::mt19937 random_;
  std::vector<std::shared_ptr<ORSSerialRequest>> requests_;
  std::vector<std::shared_ptr<ORSSerialPacketDescriptor>> descriptors_;
  std::vector<Observation> observations_;
};

TEST(HammeredPortTest, StandsWhateverItsClientDoesWhileDataStreamsIn) {
  std::size_t received = 0;
  for (std::uint32_t round = 0; round < 16; ++round) {
    StreamingDevice device(text(stream));
    auto port = portAt(device.path());
    const auto client = std::make_shared<Client>();
    port->setDelegate(client);
    port->open();
    ASSERT_TRUE(runUntil([&] { return client->received() > 0; }));
    {
      Hammer hammer(port, round);
      for (int hits = 0; hits < 250; ++hits) hammer.hit();
      if (round % 2 == 0) device.vanish();
      for (int hits = 0; hits < 50; ++hits) hammer.hit();
    }
    port->close();
    EXPECT_TRUE(runUntil([&] { return !port->isOpen() && !client->isOpen(); }));
    received += client->received();
    const std::weak_ptr<ORSSerialPort> last = port;
    port.reset();
    EXPECT_TRUE(runUntil([&] { return last.expired(); }));
  }
  EXPECT_GT(received, 16U);
}

TEST(HammeredPortTest, MayBeDroppedInEachOfItsCalls) {
  for (int call = 0; call < 20; ++call) {
    StreamingDevice device(text(stream));
    auto port = portAt(device.path());
    const std::weak_ptr<ORSSerialPort> last = port;
    const auto client = std::make_shared<Client>();
    int calls = 0;
    client->onCall = [&] {
      if (calls++ == call) port.reset();
    };
    port->setDelegate(client);
    port->open();
    port->startListeningForPacketsMatchingDescriptor(packets());
    port->sendRequest(requestOf(static_cast<std::uint32_t>(call) % 3));
    EXPECT_TRUE(runUntil([&] { return last.expired(); })) << "dropped in call " << call << " of " << calls;
  }
}

TEST(HammeredPortTest, MayBeDroppedAtEachMomentOfItsWorkers) {
  for (int moment = 0; moment < 60; ++moment) {
    StreamingDevice device(text(stream));
    auto port = portAt(device.path());
    const std::weak_ptr<ORSSerialPort> last = port;
    const auto client = std::make_shared<Client>();
    port->setDelegate(client);
    port->open();
    port->startListeningForPacketsMatchingDescriptor(packets());
    if (moment % 3 == 1) port->sendRequest(requestOf(2));
    for (int turns = 0; turns < moment; ++turns) {
      std::this_thread::yield();
      if (moment % 2 == 0) RunLoop::main().processDue();
    }
    if (moment % 4 == 3) port->close();
    port.reset();
    EXPECT_TRUE(runUntil([&] { return last.expired(); })) << "dropped after " << moment << " turns";
  }
}

}  // namespace
}  // namespace tarsil
