#pragma once

#include <string>
#include <vector>

namespace tarsil {

/// The programs that have the device at this path open, as "minicom (process 4711)"; this process is left
/// out. As far as the system lets this process see: empty says nothing. Reads through all processes, which
/// takes some milliseconds. Any thread.
std::vector<std::string> programsHolding(const std::string& path);

/// The group whose members may open the device at this path; empty where that cannot be said. Any thread.
std::string groupOf(const std::string& path);

}  // namespace tarsil
