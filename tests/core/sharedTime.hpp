#pragma once

#include "tarsil/runtime/VirtualTime.hpp"

namespace tarsil {

/// The virtual time of every test of this program: the shared port manager, once made, lives in it to the
/// end.
inline VirtualTime& sharedTime() {
  static VirtualTime& time = *new VirtualTime;
  return time;
}

}  // namespace tarsil
