#pragma once

#include <chrono>
#include <functional>

#include "tarsil/runtime/RunLoop.hpp"

namespace tarsil {

/// Runs the main loop until something holds that may come true on any thread. False when it has not within
/// a time that only a fault needs.
inline bool runUntil(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(100);
  while (!RunLoop::main().runUntil(condition, std::chrono::milliseconds(1))) {
    if (std::chrono::steady_clock::now() > end) return false;
  }
  return true;
}

}  // namespace tarsil
