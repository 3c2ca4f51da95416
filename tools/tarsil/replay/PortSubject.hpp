#pragma once

#include <map>
#include <memory>
#include <string>

#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/serial/ORSSerialRequest.hpp"
#include "tools/tarsil/replay/ReplayPortClient.hpp"
#include "tools/tarsil/replay/Subject.hpp"

namespace tarsil::cli {

/// A serial port by itself, with descriptors and requests that the script names.
class PortSubject final : public Subject {
 public:
  PortSubject(ReplayWorld world, const Operation& start);

  void perform(const Operation& operation) override;

 private:
  using Descriptor = std::shared_ptr<ORSSerialPacketDescriptor>;
  using Request = std::shared_ptr<ORSSerialRequest>;

  /// Operations by theme; false when it is none of these.
  bool performLine(const Operation& operation);
  bool performPackets(const Operation& operation);
  bool performRequests(const Operation& operation);

  void answer(const Json& value);
  void makeRequest(const Operation& operation);
  void buffer(const Operation& operation);
  Descriptor descriptor(const std::string& id) const;
  Request request(const Operation& operation) const;

  ReplayWorld world_;
  std::shared_ptr<ORSSerialPort> port_;
  std::shared_ptr<ReplayPortClient> client_;
  std::map<std::string, Descriptor> descriptors_;
  std::map<std::string, Request> requests_;
};

}  // namespace tarsil::cli
