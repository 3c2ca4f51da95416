#include "tools/tarsil/replay/PortSubject.hpp"

#include <limits>

#include "doubles/scriptedDevice.hpp"
#include "tarsil/serial/ORSSerialBuffer.hpp"
#include "tools/tarsil/replay/ScriptError.hpp"
#include "tools/tarsil/replay/descriptorFor.hpp"
#include "tools/tarsil/replay/receiving.hpp"

namespace tarsil::cli {

PortSubject::PortSubject(ReplayWorld world, const Operation& start)
    : world_(world), client_(std::make_shared<ReplayPortClient>(world.events, start["implements"])) {
  const auto state = start.find("port");
  const std::string firstState = state ? state->text() : "open";
  if (firstState != "open" && firstState != "closed") {
    throw ScriptError("a bare port is \"open\" or \"closed\", not \"" + firstState + '"');
  }
  const auto terminal = std::make_shared<doubles::ScriptedTerminal>();
  terminal->onWrite([&events = world_.events](const Bytes& bytes) {
    events.add(Json::array({"send", hexadecimal(bytes)}));
  });
  port_ = ORSSerialPort::serialPortWithDevice(doubles::scriptedDevice("ttyReplay0", terminal));
  if (firstState == "open") port_->open();
  world_.time.settle();
  // Only now, so that nothing is heard of the opening.
  port_->setDelegate(client_);
}

void PortSubject::perform(const Operation& operation) {
  if (performLine(operation) || performPackets(operation) || performRequests(operation)) return;
  refuse(operation, "a port");
}

bool PortSubject::performLine(const Operation& operation) {
  const std::string& name = operation.name();
  if (name == "open") {
    port_->open();
  } else if (name == "close") {
    answer(port_->close());
  } else if (name == "recv") {
    scriptedTerminal(*port_).deliver(operation["hex"].bytes());
  } else {
    return false;
  }
  return true;
}

bool PortSubject::performPackets(const Operation& operation) {
  const std::string& name = operation.name();
  if (name == "descriptor") {
    descriptors_[operation["id"].text()] = descriptorFor(operation);
  } else if (name == "listen") {
    port_->startListeningForPacketsMatchingDescriptor(descriptor(operation["id"].text()));
  } else if (name == "unlisten") {
    port_->stopListeningForPacketsMatchingDescriptor(descriptor(operation["id"].text()));
  } else if (name == "match") {
    const auto shape = descriptor(operation["id"].text());
    const auto packet = shape->packetMatchingAtEndOfBuffer(operation["hex"].bytes());
    answer(packet ? hexadecimal(*packet) : Json());
  } else if (name == "buffer") {
    buffer(operation);
  } else {
    return false;
  }
  return true;
}

bool PortSubject::performRequests(const Operation& operation) {
  const std::string& name = operation.name();
  if (name == "request") {
    makeRequest(operation);
  } else if (name == "sendRequest") {
    answer(port_->sendRequest(request(operation)));
  } else if (name == "cancel") {
    port_->cancelQueuedRequest(request(operation));
  } else if (name == "cancelAll") {
    port_->cancelAllQueuedRequests();
  } else if (name == "queued") {
    Json names = Json::array();
    for (const auto& waiting : port_->queuedRequests()) names.push_back(nameOf(*waiting));
    answer(names);
  } else if (name == "pending") {
    const auto pending = port_->pendingRequest();
    answer(pending ? Json(nameOf(*pending)) : Json());
  } else {
    return false;
  }
  return true;
}

void PortSubject::answer(const Json& value) {
  world_.events.add(Json::array({"return", value}));
}

void PortSubject::makeRequest(const Operation& operation) {
  const std::string id = operation["id"].text();
  const auto timeout = operation.find("timeout");
  const auto shape = operation.find("descriptor");
  requests_[id] = std::make_shared<ORSSerialRequest>(ORSSerialRequest::WithDescriptor{
      .dataToSend = operation["data"].bytes(),
      .userInfo = id,
      .timeoutInterval = timeout ? timeout->seconds() : 0,
      .responseDescriptor = shape && !shape->isNull() ? descriptor(shape->text()) : nullptr});
}

void PortSubject::buffer(const Operation& operation) {
  ORSSerialBuffer buffer(
      static_cast<std::uint64_t>(operation["max"].integer(0, std::numeric_limits<std::int64_t>::max())));
  for (const auto& chunk : operation["chunks"].elements()) buffer.appendData(chunk.bytes());
  answer(hexadecimal(buffer.view()));
}

PortSubject::Descriptor PortSubject::descriptor(const std::string& id) const {
  const auto known = descriptors_.find(id);
  if (known == descriptors_.end()) throw ScriptError("there is no descriptor \"" + id + '"');
  return known->second;
}

PortSubject::Request PortSubject::request(const Operation& operation) const {
  const std::string id = operation["id"].text();
  const auto known = requests_.find(id);
  if (known == requests_.end()) throw ScriptError("there is no request \"" + id + '"');
  return known->second;
}

}  // namespace tarsil::cli
