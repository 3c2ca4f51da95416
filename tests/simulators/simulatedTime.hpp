#pragma once

#include "tarsil/runtime/VirtualTime.hpp"

namespace tarsil::simulators {

/// The time of this program's tests. Never gone: what lives as long as the process has its timers in it.
inline VirtualTime& simulatedTime() {
  static VirtualTime& time = *new VirtualTime;
  return time;
}

}  // namespace tarsil::simulators
