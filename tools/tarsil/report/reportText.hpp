#pragma once

#include <string>
#include <string_view>

#include "tarsil/runtime/Clock.hpp"

namespace tarsil::cli {

/// For calculations and charts.
double inSeconds(Duration duration);

/// The text as it stands between tags and in quoted attributes of HTML and SVG. Control characters, which
/// have no place there, become blanks.
std::string markup(std::string_view text);

}  // namespace tarsil::cli
