#pragma once

#include <array>
#include <string>
#include <string_view>

namespace tarsil::cli {

/// Digits, "." and ":" three rows high, in the manner of a seven-segment display; a "-" stands for what is
/// not known, and everything else is left out. Rows of one width.
std::array<std::string, 3> largeText(std::string_view text);

}  // namespace tarsil::cli
