#pragma once

#include "tarsil/support/cpp20.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace tarsil {

/// Bytes that somebody owns.
using Bytes = std::vector<std::uint8_t>;

/// Bytes that somebody else owns, for as long as the call lasts.
using ByteView = std::span<const std::uint8_t>;

}  // namespace tarsil
