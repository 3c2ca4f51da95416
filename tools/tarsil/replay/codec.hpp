#pragma once

#include "tools/tarsil/replay/Operation.hpp"

namespace tarsil::cli {

/// What the codec that the operation names makes of its argument; null for none. Throws std::out_of_range
/// where the codec does.
Json codecResult(const Operation& operation);

}  // namespace tarsil::cli
