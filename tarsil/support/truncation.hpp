#pragma once

#include <cstdint>
#include <string_view>

namespace tarsil {

/// `value` without its fraction (toward zero). A value that is not finite, or that lies outside the 64-bit
/// range, stops the process: there is no honest integer for it. `what` names the value in that message. Any
/// thread.
std::int64_t truncatedOrStop(float value, std::string_view what);
std::int64_t truncatedOrStop(double value, std::string_view what);

}  // namespace tarsil
