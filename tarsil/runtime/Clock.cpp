#include "tarsil/runtime/Clock.hpp"

#include "tarsil/runtime/detail/VirtualTimeImplementation.hpp"

namespace tarsil {

Clock::Instant Clock::now() {
  if (const auto* virtualTime = VirtualTime::Implementation::current()) return virtualTime->now();
  return Instant(std::chrono::steady_clock::now().time_since_epoch());
}

std::chrono::system_clock::time_point Clock::wallNow() {
  if (const auto* virtualTime = VirtualTime::Implementation::current()) return virtualTime->wallNow();
  return std::chrono::system_clock::now();
}

}  // namespace tarsil
