#include "tools/tarsil/replay/ReplayPortClient.hpp"

#include <algorithm>
#include <map>

#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"
#include "tarsil/serial/ORSSerialRequest.hpp"
#include "tools/tarsil/replay/ScriptError.hpp"

namespace tarsil::cli {
namespace {

using Selector = ORSSerialPortDelegate::Selector;

const std::map<std::string, Selector> selectors{
    {"received", Selector::serialPortDidReceiveData},
    {"packet", Selector::serialPortDidReceivePacket},
    {"response", Selector::serialPortDidReceiveResponse},
    {"timeout", Selector::serialPortRequestDidTimeout},
    {"opened", Selector::serialPortWasOpened},
    {"closed", Selector::serialPortWasClosed},
};

}  // namespace

ReplayPortClient::ReplayPortClient(Events& events, const Value& implements) : events_(events) {
  for (const auto& name : implements.texts()) {
    const auto selector = selectors.find(name);
    if (selector == selectors.end()) throw ScriptError("a port's delegate cannot implement \"" + name + '"');
    answered_.push_back(selector->second);
  }
}

bool ReplayPortClient::respondsTo(Selector selector) const {
  return std::find(answered_.begin(), answered_.end(), selector) != answered_.end();
}

void ReplayPortClient::serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& data) {
  events_.add(Json::array({"received", hexadecimal(data)}));
}

void ReplayPortClient::serialPortDidReceivePacket(ORSSerialPort& /*port*/, const Bytes& packet,
                                                  const Descriptor& matchingDescriptor) {
  events_.add(Json::array({"packet", nameOf(*matchingDescriptor), hexadecimal(packet)}));
}

void ReplayPortClient::serialPortDidReceiveResponse(ORSSerialPort& /*port*/, const Bytes& response,
                                                    const Request& toRequest) {
  events_.add(Json::array({"response", nameOf(*toRequest), hexadecimal(response)}));
}

void ReplayPortClient::serialPortRequestDidTimeout(ORSSerialPort& /*port*/, const Request& request) {
  events_.add(Json::array({"timeout", nameOf(*request)}));
}

void ReplayPortClient::serialPortWasOpened(ORSSerialPort& /*port*/) {
  events_.add(Json::array({"opened"}));
}

void ReplayPortClient::serialPortWasClosed(ORSSerialPort& /*port*/) {
  events_.add(Json::array({"closed"}));
}

}  // namespace tarsil::cli
