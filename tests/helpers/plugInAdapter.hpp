#pragma once

#include <optional>
#include <string>

namespace tarsil {

/// Lists a terminal of the system as a USB adapter with this serial number, until
/// `VirtualDeviceRegistry::remove(path)`.
void plugInAdapter(const std::string& path, const std::string& serialNumber,
                   const std::optional<std::string>& stablePath = std::nullopt);

}  // namespace tarsil
