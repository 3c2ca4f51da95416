#include "tools/tarsil/run/chosenPort.hpp"

#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"

namespace tarsil::cli {

std::string chosenPort(const std::string& nameOrPath) {
  if (nameOrPath.find('/') == std::string::npos) return nameOrPath;
  if (const auto port = ORSSerialPort::serialPortWithPath(nameOrPath)) return port->name();
  VirtualDeviceRegistry::shared()->add(nameOrPath, nameOrPath);
  return nameOrPath;
}

}  // namespace tarsil::cli
