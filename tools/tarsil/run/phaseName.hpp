#pragma once

#include <cstddef>
#include <string>

#include "tools/tarsil/run/Protocol.hpp"

namespace tarsil::cli {

/// "warm-up", "stage 2 of 7", "recovery".
std::string phaseName(const Protocol& protocol, std::size_t index);

}  // namespace tarsil::cli
