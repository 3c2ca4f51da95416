#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/serial/detail/ORSSerialPortImplementation.hpp"
#include "tarsil/serial/detail/ORSSerialPortPackets.hpp"

namespace tarsil {

// Observers and evaluators of the client run on the port's own queue while these calls wait for it. They may
// drop the port, so each call holds it.

bool ORSSerialPort::sendRequest(const Request& request) {
  const auto kept = shared_from_this();
  return request && implementation_->packets().requests().send(request);
}

void ORSSerialPort::cancelQueuedRequest(const Request& request) {
  if (request) implementation_->packets().requests().cancel(request);
}

void ORSSerialPort::cancelAllQueuedRequests() {
  implementation_->packets().requests().cancelAll();
}

std::vector<ORSSerialPort::Request> ORSSerialPort::queuedRequests() const {
  return implementation_->packets().requests().waiting();
}

ORSSerialPort::Request ORSSerialPort::pendingRequest() const {
  return implementation_->packets().requests().pending();
}

void ORSSerialPort::startListeningForPacketsMatchingDescriptor(const Descriptor& descriptor) {
  const auto kept = shared_from_this();
  if (descriptor) implementation_->packets().startListening(descriptor);
}

void ORSSerialPort::stopListeningForPacketsMatchingDescriptor(const Descriptor& descriptor) {
  const auto kept = shared_from_this();
  if (descriptor) implementation_->packets().stopListening(descriptor);
}

std::vector<ORSSerialPort::Descriptor> ORSSerialPort::packetDescriptors() const {
  return implementation_->packets().descriptors();
}

}  // namespace tarsil
