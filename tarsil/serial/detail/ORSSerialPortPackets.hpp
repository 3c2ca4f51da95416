#pragma once

#include <memory>
#include <vector>

#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/serial/detail/PacketListener.hpp"
#include "tarsil/serial/detail/RequestQueue.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil {

/// What a port makes of the bytes that it receives besides handing them on: packets that the client listens
/// for, and responses to its requests. The work is done on a serial queue of the port's own; the delegate is
/// called on the main thread.
class ORSSerialPort::Packets {
 public:
  explicit Packets(const std::weak_ptr<ORSSerialPort>& port);

  /// A chunk that was read. Worker threads.
  void received(ByteView chunk);

  /// True while the port's own queue runs on the calling thread.
  bool isAtWork() const { return queue_.isCurrent(); }

  detail::RequestQueue& requests() { return *requests_; }

  void startListening(const Descriptor& descriptor);
  void stopListening(const Descriptor& descriptor);
  std::vector<Descriptor> descriptors() const { return listener_.descriptors(); }

 private:
  class RequestPort;

  void match(ByteView chunk);
  void announceDescriptors() const;

  std::weak_ptr<ORSSerialPort> port_;
  DispatchQueue queue_ = DispatchQueue::serial("requestHandlingQueue");
  detail::PacketListener listener_;
  std::shared_ptr<detail::RequestQueue> requests_;
};

}  // namespace tarsil
