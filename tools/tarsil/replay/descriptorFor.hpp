#pragma once

#include <memory>

#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"
#include "tools/tarsil/replay/Operation.hpp"

namespace tarsil::cli {

/// The descriptor that a script describes; its "id" is its user info.
std::shared_ptr<ORSSerialPacketDescriptor> descriptorFor(const Operation& operation);

}  // namespace tarsil::cli
