#pragma once

#include <cstddef>
#include <memory>

#include "tarsil/support/Delegate.hpp"
#include "tarsil/support/Error.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil {

class ORSSerialPort;
class ORSSerialPacketDescriptor;
class ORSSerialRequest;

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

  /// The optional methods, in declaration order.
  enum class Selector {
    serialPortWasRemovedFromSystem,
    serialPortDidReceiveData,
    serialPortDidReceivePacket,
    serialPortDidReceiveResponse,
    serialPortRequestDidTimeout,
    serialPortDidEncounterError,
    serialPortWasOpened,
    serialPortWasClosed,
  };

  /// The methods that the class `Host` overrides.
  template <class Host>
  static constexpr AnsweredSelectors<ORSSerialPortDelegate> overriddenBy();
};

/// A weak reference to a port's delegate that remembers which methods the delegate's class overrides.
class ORSSerialPortDelegateRef {
 public:
  using Selector = ORSSerialPortDelegate::Selector;

  ORSSerialPortDelegateRef() = default;
  ORSSerialPortDelegateRef(std::nullptr_t) {}

  /// Implicit, so that a client writes `port->setDelegate(client)`.
  template <std::derived_from<ORSSerialPortDelegate> Host>
  ORSSerialPortDelegateRef(const std::shared_ptr<Host>& host)
      : host_(host),
        respondsTo_(&hostRespondsTo<Host, ORSSerialPortDelegate>),
        mayRespondTo_(&hostMayRespondTo<Host, ORSSerialPortDelegate>) {}

  /// Null when there is none, or no longer.
  std::shared_ptr<ORSSerialPortDelegate> lock() const { return host_.lock(); }

  /// The delegate, when it is alive and answers the selector; else null.
  std::shared_ptr<ORSSerialPortDelegate> respondingTo(Selector selector) const {
    auto host = host_.lock();
    return host && respondsTo_(*host, selector) ? host : nullptr;
  }

  /// False when there is no delegate, or no longer, or its class never answers the selector. Does not hold
  /// the delegate, which would otherwise end on a thread that only asked.
  bool mayRespondTo(Selector selector) const { return !host_.expired() && mayRespondTo_(selector); }

 private:
  std::weak_ptr<ORSSerialPortDelegate> host_;
  bool (*respondsTo_)(const ORSSerialPortDelegate&, Selector) = nullptr;
  bool (*mayRespondTo_)(Selector) = nullptr;
};

template <class Host>
constexpr AnsweredSelectors<ORSSerialPortDelegate> ORSSerialPortDelegate::overriddenBy() {
  using P = ORSSerialPortDelegate;
  using enum Selector;
  return AnsweredSelectors<P>{}
      .set(
          serialPortWasRemovedFromSystem,
          !requires {
            requires Inherits<&Host::serialPortWasRemovedFromSystem, &P::serialPortWasRemovedFromSystem>;
          })
      .set(
          serialPortDidReceiveData,
          !requires { requires Inherits<&Host::serialPortDidReceiveData, &P::serialPortDidReceiveData>; })
      .set(
          serialPortDidReceivePacket,
          !requires { requires Inherits<&Host::serialPortDidReceivePacket, &P::serialPortDidReceivePacket>; })
      .set(
          serialPortDidReceiveResponse,
          !requires {
            requires Inherits<&Host::serialPortDidReceiveResponse, &P::serialPortDidReceiveResponse>;
          })
      .set(
          serialPortRequestDidTimeout,
          !requires {
            requires Inherits<&Host::serialPortRequestDidTimeout, &P::serialPortRequestDidTimeout>;
          })
      .set(
          serialPortDidEncounterError,
          !requires {
            requires Inherits<&Host::serialPortDidEncounterError, &P::serialPortDidEncounterError>;
          })
      .set(
          serialPortWasOpened,
          !requires { requires Inherits<&Host::serialPortWasOpened, &P::serialPortWasOpened>; })
      .set(
          serialPortWasClosed,
          !requires { requires Inherits<&Host::serialPortWasClosed, &P::serialPortWasClosed>; });
}

}  // namespace tarsil
