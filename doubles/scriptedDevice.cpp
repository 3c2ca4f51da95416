#include "doubles/scriptedDevice.hpp"

#include <utility>

namespace tarsil::doubles {

std::shared_ptr<const SerialDevice> scriptedDevice(const std::string& terminalName,
                                                   std::shared_ptr<Terminal> terminal) {
  const std::size_t suffix = terminalName.find_last_not_of("0123456789") + 1;
  auto device = std::make_shared<SerialDevice>();
  device->calloutPath = "/dev/" + terminalName;
  device->dialinPath = device->calloutPath;
  device->terminalName = terminalName;
  device->baseName = terminalName.substr(0, suffix);
  device->suffix = terminalName.substr(suffix);
  device->clientType = "serial";
  device->terminal = std::move(terminal);
  return device;
}

}  // namespace tarsil::doubles
