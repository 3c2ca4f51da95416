#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "tarsil/runtime/Clock.hpp"

namespace tarsil::simulators {

/// How long the bytes take at this speed (bit/s): a start bit, eight data bits and a stop bit each.
inline Duration timeOnTheLine(std::size_t bytes, std::uint64_t baudRate) {
  const double bits = 10.0 * static_cast<double>(bytes);
  return std::chrono::duration_cast<Duration>(
      std::chrono::duration<double>(bits / static_cast<double>(baudRate)));
}

}  // namespace tarsil::simulators
