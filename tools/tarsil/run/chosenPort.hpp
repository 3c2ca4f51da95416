#pragma once

#include <string>

namespace tarsil::cli {

/// The name under which the library lists the port that a person chose by name or by path. A path that the
/// system does not list as a serial port (a pseudo-terminal's, say) becomes a port of that name.
std::string chosenPort(const std::string& nameOrPath);

}  // namespace tarsil::cli
