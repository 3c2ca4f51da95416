#pragma once

#include <memory>

#include "tarsil/support/Delegate.hpp"
#include "tarsil/support/Error.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil {

class ORSSerialPort;
class ORSSerialPacketDescriptor;
class ORSSerialRequest;

/// The optional methods of `ORSSerialPortDelegate`, in declaration order: the one list of them.
#define TARSIL_ORS_SERIAL_PORT_DELEGATE_METHODS(METHOD) \
  METHOD(serialPortWasRemovedFromSystem)                \
  METHOD(serialPortDidReceiveData)                      \
  METHOD(serialPortDidReceivePacket)                    \
  METHOD(serialPortDidReceiveResponse)                  \
  METHOD(serialPortRequestDidTimeout)                   \
  METHOD(serialPortDidEncounterError)                   \
  METHOD(serialPortWasOpened)                           \
  METHOD(serialPortWasClosed)

/// What a port tells whoever uses it. Override the methods that you want; the port asks which ones there are
/// before every call and skips the others, and closing treats its request queue differently without
/// `serialPortWasClosed`. Every method is called on the main thread.
class ORSSerialPortDelegate {
 public:
  using Descriptor = std::shared_ptr<ORSSerialPacketDescriptor>;
  using Request = std::shared_ptr<ORSSerialRequest>;

  virtual ~ORSSerialPortDelegate() = default;

  /// The device vanished. The port waits for this call, then closes.
  virtual void serialPortWasRemovedFromSystem(ORSSerialPort& /*port*/) {}
  /// A chunk of 1 to 1024 bytes, as read: where one ends says nothing about the device's frames.
  virtual void serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& /*data*/) {}
  /// A packet that matches a descriptor which the port listens for.
  virtual void serialPortDidReceivePacket(ORSSerialPort& /*port*/, const Bytes& /*packet*/,
                                          const Descriptor& /*matchingDescriptor*/) {}
  /// The response to the pending request.
  virtual void serialPortDidReceiveResponse(ORSSerialPort& /*port*/, const Bytes& /*response*/,
                                            const Request& /*toRequest*/) {}
  /// The pending request got no response in time. The next request is sent after this call returns.
  virtual void serialPortRequestDidTimeout(ORSSerialPort& /*port*/, const Request& /*request*/) {}
  /// A system call failed. A call that the client made on the main thread tells this before it returns, but
  /// for `sendRequest`, which tells it later, as does everything that fails on another thread.
  virtual void serialPortDidEncounterError(ORSSerialPort& /*port*/, const Error& /*error*/) {}
  /// The port is open. Comes after `open` has returned.
  virtual void serialPortWasOpened(ORSSerialPort& /*port*/) {}
  /// The port is closed. The port waits for this call.
  virtual void serialPortWasClosed(ORSSerialPort& /*port*/) {}

  /// `Selector`, an enumerator for each method, and `selectorNames`; in declaration order.
  TARSIL_OPTIONAL_METHODS(ORSSerialPortDelegate, TARSIL_ORS_SERIAL_PORT_DELEGATE_METHODS)
};

/// A weak reference to a port's delegate that remembers which methods the delegate's class overrides.
class ORSSerialPortDelegateRef : public DelegateRef<ORSSerialPortDelegate, std::weak_ptr> {
 public:
  using DelegateRef::DelegateRef;

  /// Null when there is none, or no longer.
  std::shared_ptr<ORSSerialPortDelegate> lock() const { return host_.lock(); }

  /// The delegate, when it is alive and answers the selector; else null.
  std::shared_ptr<ORSSerialPortDelegate> respondingTo(Selector selector) const {
    auto host = host_.lock();
    return host && answers(*host, selector) ? host : nullptr;
  }

  /// False when there is no delegate, or no longer, or its class never answers the selector. Does not hold
  /// the delegate, which would otherwise end on a thread that only asked.
  bool mayRespondTo(Selector selector) const { return !host_.expired() && mayAnswer(selector); }
};

}  // namespace tarsil
