#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "tarsil/guard/Limits.hpp"
#include "tarsil/runtime/Clock.hpp"
#include "tests/guard/RandomSession.hpp"

namespace tarsil {

constexpr Duration heartbeatOfRandomHosts = std::chrono::milliseconds(500);

/// The limits of the hosts of a session with this seed.
inline Limits limitsOf(std::uint64_t seed) {
  Limits limits;
  limits.speed.highest = 4.0F + static_cast<float>(seed % 10);
  limits.grade.highest = 17.0F + static_cast<float>(seed % 6);
  limits.power.highest = 100.0F + static_cast<float>(seed % 200);
  return limits;
}

/// Lets random hosts drive a simulated device over a random cable for some seconds of real time: device,
/// cable and each host (and its watcher) are processes of their own over pseudo-terminals. Hosts are killed
/// and stopped, plugs are pulled, ways are muted, buttons are pressed at the machine; the next host finds
/// what the one before left. Then the journals of all hosts are held against the machine's own history. The
/// same seed makes the same plan; what comes of it depends on the moments, too. Main thread; `folder` is an
/// empty one.
RandomSession runProcessSession(std::uint64_t seed, const std::string& folder);

}  // namespace tarsil
