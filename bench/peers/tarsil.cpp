#include <chrono>

#include "bench/peers/Peer.hpp"
#include "tarsil/platform/SystemPlatform.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"

namespace peers {
namespace {

using namespace tarsil;
using namespace std::chrono_literals;

struct Host final : ORSSerialPortDelegate {
  void serialPortWasOpened(ORSSerialPort& /*port*/) override { isOpen = true; }
  void serialPortWasClosed(ORSSerialPort& /*port*/) override { isOpen = false; }
  void serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& data) override {
    handedOver += data.size();
  }
  bool isOpen = false;
  std::size_t handedOver = 0;
};

class Port final : public Peer {
 public:
  explicit Port(int descriptors) : descriptors_(descriptors) {}

  std::string name() const override {
    return descriptors_ == 0 ? "Tarsil" : "Tarsil, " + std::to_string(descriptors_) + " descriptors";
  }
  bool readsInBackground() const override { return true; }
  void open(const std::string& path) override {
    auto device = std::make_shared<SerialDevice>();
    device->calloutPath = path;
    device->terminal = systemTerminal();
    port_ = ORSSerialPort::serialPortWithDevice(device);
    host_ = std::make_shared<Host>();
    taken_ = 0;
    port_->setDelegate(host_);
    for (int i = 0; i < descriptors_; ++i) {
      port_->startListeningForPacketsMatchingDescriptor(
          std::make_shared<ORSSerialPacketDescriptor>(ORSSerialPacketDescriptor::PrefixAndSuffix{
              .prefix = Bytes{'$'}, .suffix = Bytes{'\r', '\n'}, .maximumPacketLength = 64}));
    }
    port_->open();
    RunLoop::main().runUntil([this] { return host_->isOpen; }, 10s);
  }
  bool send(const std::string& bytes) override {
    return port_->sendData({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
  }
  bool receive(std::size_t count) override {
    taken_ += count;
    return RunLoop::main().runUntil([this] { return host_->handedOver >= taken_; }, 10s);
  }
  void close() override {
    port_->close();
    RunLoop::main().runUntil([this] { return !host_->isOpen; }, 10s);
    port_.reset();
  }

 private:
  const int descriptors_;
  std::shared_ptr<ORSSerialPort> port_;
  std::shared_ptr<Host> host_;
  std::size_t taken_ = 0;
};

}  // namespace

void addTarsil(Peers& peers) {
  peers.push_back(std::make_unique<Port>(0));
  peers.push_back(std::make_unique<Port>(10));
}

}  // namespace peers
