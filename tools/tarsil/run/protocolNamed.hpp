#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tarsil/exercise/Protocol.hpp"

namespace tarsil::cli {

/// The names of the protocols that come with the program.
std::vector<std::string> builtInProtocols();

/// The text of the protocol that comes with the program under this name. Throws CommandFailure for another.
std::string_view builtInProtocolText(const std::string& name);

/// The protocol that comes with the program under this name, else the one in this file. Throws CommandFailure
/// for a file that cannot be read, with line and reason for one that is faulty.
Protocol protocolNamed(const std::string& nameOrFile);

}  // namespace tarsil::cli
