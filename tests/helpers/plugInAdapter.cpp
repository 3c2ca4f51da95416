#include "tests/helpers/plugInAdapter.hpp"

#include <memory>
#include <utility>

#include "tarsil/platform/SystemPlatform.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"

namespace tarsil {

void plugInAdapter(const std::string& path, const std::string& serialNumber,
                   const std::optional<std::string>& stablePath) {
  SerialDevice device;
  device.calloutPath = device.dialinPath = device.terminalName = path;
  device.usb.emplace() = {.vendorId = "0403",
                          .productId = "6001",
                          .serialNumber = serialNumber,
                          .manufacturer = {},
                          .product = {}};
  device.stablePath = stablePath;
  device.terminal = systemTerminal();
  VirtualDeviceRegistry::shared()->add(std::make_shared<const SerialDevice>(std::move(device)));
}

}  // namespace tarsil
