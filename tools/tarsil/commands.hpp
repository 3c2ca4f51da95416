#pragma once

#include <memory>
#include <vector>

#include "tools/tarsil/Command.hpp"

namespace tarsil::cli {

/// All commands, in the order in which the help lists them.
std::vector<std::unique_ptr<Command>> commands();

}  // namespace tarsil::cli
