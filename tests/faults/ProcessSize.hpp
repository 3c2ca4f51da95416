#pragma once

#include <cstddef>
#include <string>

#include "tarsil/runtime/Clock.hpp"

namespace tarsil {

/// What this process holds at one moment.
struct ProcessSize {
  /// Bytes in memory.
  std::size_t resident = 0;
  /// Bytes that were allocated and not freed.
  std::size_t heap = 0;
  std::size_t descriptors = 0;
  std::size_t threads = 0;
  /// Processor time that was used so far.
  Duration used{};

  static ProcessSize now();
};

/// Numbers of this process's open descriptors and what they lead to, one a line.
std::string openDescriptors();

}  // namespace tarsil
