#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tarsil {

/// What one random session came to.
struct RandomSession {
  /// What happened, for whoever reads a violation: model, cable, and each thing that host, cable and machine
  /// did, a line each.
  std::vector<std::string> story;
  /// Rules that did not hold; empty as it should be.
  std::vector<std::string> violations;
  /// How often a rule was held against the device's own truth.
  std::uint64_t checks = 0;
  /// Faults of cable, machine and host.
  std::uint64_t faults = 0;
};

/// Lets a random host drive a random model over a random cable for half a minute or so of virtual time, with
/// faults in the middle, and holds the station to its rules after every step. The same seed gives the same
/// session. Main thread.
RandomSession runRandomSession(std::uint64_t seed);

}  // namespace tarsil
