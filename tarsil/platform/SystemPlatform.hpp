#pragma once

#include <memory>

#include "tarsil/platform/SerialDeviceRegistry.hpp"
#include "tarsil/platform/Terminal.hpp"
#include "tarsil/platform/UserFolders.hpp"

namespace tarsil {

/// The running system's own terminals.
std::shared_ptr<Terminal> systemTerminal();

/// The running system's own serial devices.
std::shared_ptr<SerialDeviceRegistry> systemSerialDeviceRegistry();

/// The folders of the running system's user.
std::shared_ptr<UserFolders> systemUserFolders();

}  // namespace tarsil
