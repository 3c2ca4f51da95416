#pragma once

#include <cstdint>

namespace tarsil::simulators {

/// A pseudo-random sequence (xorshift32) that is the same everywhere for the same seed, which the standard's
/// distributions are not.
class Random {
 public:
  /// Any seed; 0 counts as another one, for which the sequence would stand still.
  explicit Random(std::uint32_t seed) : state_(seed == 0 ? 2463534242U : seed) {}

  /// Evenly spread over 1 to 2^32 - 1.
  std::uint32_t next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 17;
    state_ ^= state_ << 5;
    return state_;
  }

  /// Whether something with this chance (0 never to 1 always) happens now.
  bool happens(double chance) { return static_cast<double>(next()) <= chance * 4294967295.0; }

  /// Evenly spread over 0 to `limit` - 1; 0 for a limit of 0.
  std::uint64_t below(std::uint64_t limit) {
    const std::uint64_t high = next();
    return limit == 0 ? 0 : (high << 32 | next()) % limit;
  }

 private:
  std::uint32_t state_;
};

}  // namespace tarsil::simulators
