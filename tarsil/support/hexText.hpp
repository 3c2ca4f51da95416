#pragma once

#include <string>

#include "tarsil/support/bytes.hpp"

namespace tarsil {

/// Two hexadecimal digits a byte, without anything between them; empty for no bytes. Any thread.
std::string lowerHexText(ByteView bytes);
std::string upperHexText(ByteView bytes);

/// The digit of a value below 16. Any thread.
char upperHexDigit(unsigned value);

}  // namespace tarsil
