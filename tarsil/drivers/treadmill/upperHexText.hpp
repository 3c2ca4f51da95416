#pragma once

#include <string>

#include "tarsil/support/bytes.hpp"

namespace tarsil {

/// Two upper-case hexadecimal digits a byte, the form in which the treadmill drivers read replies.
std::string upperHexText(ByteView bytes);

}  // namespace tarsil
