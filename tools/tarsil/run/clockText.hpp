#pragma once

#include <string>

#include "tarsil/runtime/Clock.hpp"

namespace tarsil::cli {

/// "3:07": minutes and whole seconds that have passed.
std::string clockText(Duration duration);

}  // namespace tarsil::cli
