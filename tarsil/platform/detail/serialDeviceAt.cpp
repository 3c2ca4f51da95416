#include "tarsil/platform/detail/serialDeviceAt.hpp"

#include <utility>

#include "tarsil/platform/SystemPlatform.hpp"

namespace tarsil::detail {

SerialDevice serialDeviceAt(std::string path, std::string terminalName) {
  // npos for a name of digits only, and npos + 1 is 0.
  const std::size_t suffixStart = terminalName.find_last_not_of("0123456789") + 1;
  SerialDevice device;
  device.calloutPath = path;
  device.dialinPath = std::move(path);
  device.baseName = terminalName.substr(0, suffixStart);
  device.suffix = terminalName.substr(suffixStart);
  device.terminalName = std::move(terminalName);
  device.clientType = "IOSerialStream";
  device.terminal = systemTerminal();
  return device;
}

}  // namespace tarsil::detail
