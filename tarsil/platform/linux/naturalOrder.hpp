#pragma once

#include <string_view>

namespace tarsil {

/// Orders texts by their characters and the numbers in them by their value: "ttyS2" before "ttyS10".
bool comesBefore(std::string_view left, std::string_view right);

}  // namespace tarsil
