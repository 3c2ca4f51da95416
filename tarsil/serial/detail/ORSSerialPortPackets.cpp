#include "tarsil/serial/detail/ORSSerialPortPackets.hpp"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

#include "tarsil/serial/detail/ORSSerialPortImplementation.hpp"

namespace tarsil {
namespace {

using Selector = ORSSerialPortDelegate::Selector;

}  // namespace

/// The port, as its requests see it. They may outlive it by a moment.
class ORSSerialPort::Packets::RequestPort final : public detail::RequestQueue::Port {
 public:
  explicit RequestPort(std::weak_ptr<ORSSerialPort> port) : port_(std::move(port)) {}

  bool write(ByteView data) override {
    const auto port = port_.lock();
    return port && port->sendData(data);
  }

  void receivedResponse(Bytes response, const Request& toRequest) override {
    const auto port = port_.lock();
    if (!port) return;
    port->implementation_->tell(
        Selector::serialPortDidReceiveResponse, Implementation::Delivery::queued,
        [response = std::move(response), toRequest](ORSSerialPortDelegate& delegate, ORSSerialPort& sender) {
          delegate.serialPortDidReceiveResponse(sender, response, toRequest);
        });
  }

  bool requestDidTimeout(const Request& request, Work afterwards) override {
    const auto port = port_.lock();
    if (!port || !port->delegate().mayRespondTo(Selector::serialPortRequestDidTimeout)) return false;
    DispatchQueue::main().async([port, request, afterwards = std::move(afterwards)] {
      const auto delegate = port->delegate().respondingTo(Selector::serialPortRequestDidTimeout);
      if (delegate) delegate->serialPortRequestDidTimeout(*port, request);
      afterwards();
    });
    return true;
  }

  void changed(std::string_view key) override {
    if (const auto port = port_.lock()) port->announce(key);
  }

 private:
  std::weak_ptr<ORSSerialPort> port_;
};

ORSSerialPort::Packets::Packets(const std::weak_ptr<ORSSerialPort>& port)
    : port_(port),
      listener_([port](Bytes packet, const Descriptor& matchingDescriptor) {
        const auto sender = port.lock();
        if (!sender) return;
        sender->implementation_->tell(Selector::serialPortDidReceivePacket, Implementation::Delivery::queued,
                                      [packet = std::move(packet), matchingDescriptor](
                                          ORSSerialPortDelegate& delegate, ORSSerialPort& self) {
                                        delegate.serialPortDidReceivePacket(self, packet, matchingDescriptor);
                                      });
      }),
      requests_(std::make_shared<detail::RequestQueue>(queue_, std::make_unique<RequestPort>(port))) {}

void ORSSerialPort::Packets::received(ByteView chunk) {
  if (listener_.isEmpty() && requests_->isIdle()) return;
  queue_.async([port = port_.lock(), this, bytes = Bytes(chunk.begin(), chunk.end())] {
    if (port) match(bytes);
  });
}

// Byte by byte, so that packets come in the order of their ends; but for the bytes that nobody looks for.
void ORSSerialPort::Packets::match(ByteView chunk) {
  listener_.begin(chunk);
  for (std::size_t at = 0; at < chunk.size(); ++at) {
    at = std::min(std::max(at, listener_.next()), at + requests_->useless(chunk.subspan(at)));
    if (at >= chunk.size()) return;
    listener_.append(chunk, at);
    requests_->append(chunk[at]);
  }
}

void ORSSerialPort::Packets::startListening(const Descriptor& descriptor) {
  queue_.sync([&] {
    if (listener_.start(descriptor)) announceDescriptors();
  });
}

void ORSSerialPort::Packets::stopListening(const Descriptor& descriptor) {
  queue_.sync([&] {
    listener_.stop(*descriptor);
    announceDescriptors();
  });
}

void ORSSerialPort::Packets::announceDescriptors() const {
  const auto port = port_.lock();
  if (!port) return;
  port->announce("packetDescriptorsAndBuffers");
  port->announce("packetDescriptors");
}

}  // namespace tarsil
