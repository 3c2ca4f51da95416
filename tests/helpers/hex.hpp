#pragma once

#include <string>
#include <string_view>

#include "tarsil/support/bytes.hpp"

namespace tarsil {

/// The bytes that hexadecimal digit pairs stand for; blanks are skipped: hex("02 05 ff"). Throws
/// std::invalid_argument for anything else, so that a slip of the pen fails its test.
Bytes hex(std::string_view pairs);

/// "02 05 ff"
std::string hexText(ByteView bytes);

/// The characters as bytes.
Bytes text(std::string_view characters);

}  // namespace tarsil
