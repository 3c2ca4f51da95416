#pragma once

#include <string>
#include <vector>

#include "tarsil/serial/ORSSerialPortDelegate.hpp"
#include "tools/tarsil/replay/Events.hpp"
#include "tools/tarsil/replay/Value.hpp"

namespace tarsil::cli {

/// A port's delegate whose calls become events. Descriptors and requests carry their names as user info.
class ReplayPortClient final : public ORSSerialPortDelegate {
 public:
  /// `implements` lists the calls that it answers: received, packet, response, timeout, opened, closed.
  /// Throws ScriptError for any other.
  ReplayPortClient(Events& events, const Value& implements);

  bool respondsTo(Selector selector) const;

  void serialPortDidReceiveData(ORSSerialPort& port, const Bytes& data) override;
  void serialPortDidReceivePacket(ORSSerialPort& port, const Bytes& packet,
                                  const Descriptor& matchingDescriptor) override;
  void serialPortDidReceiveResponse(ORSSerialPort& port, const Bytes& response,
                                    const Request& toRequest) override;
  void serialPortRequestDidTimeout(ORSSerialPort& port, const Request& request) override;
  void serialPortWasOpened(ORSSerialPort& port) override;
  void serialPortWasClosed(ORSSerialPort& port) override;

 private:
  Events& events_;
  std::vector<Selector> answered_;
};

/// The name that a descriptor or a request carries.
template <class Named>
std::string nameOf(const Named& named) {
  return std::any_cast<std::string>(named.userInfo());
}

}  // namespace tarsil::cli
