#pragma once

#include <cstddef>

#include "tarsil/runtime/Clock.hpp"

namespace tarsil {

/// What this process holds at one moment.
struct ProcessSize {
  /// Bytes in memory.
  std::size_t resident = 0;
  /// Bytes that `new` handed out and nobody gave back; what the allocator keeps for later is not in them.
  std::size_t heap = 0;
  std::size_t descriptors = 0;
  std::size_t threads = 0;
  /// Processor time that was used so far.
  Duration used{};

  static ProcessSize now();
};

}  // namespace tarsil
