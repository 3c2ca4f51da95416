#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tarsil/support/bytes.hpp"

namespace tarsil::detail {

/// Finds a sequence of bytes in a stream (Knuth, Morris and Pratt): constant time per byte on average, and no
/// byte is looked at twice.
class SequenceFinder {
 public:
  /// The sequence must not be empty.
  explicit SequenceFinder(Bytes sequence);

  const Bytes& sequence() const { return sequence_; }

  /// True when the sequence ends with this byte. Occurrences may overlap.
  bool feed(std::uint8_t byte);

  /// How many of the newest bytes may be the beginning of an occurrence (after a find: the sequence's
  /// length).
  std::size_t matched() const { return matched_; }

  /// Forgets all bytes.
  void reset() { matched_ = 0; }

 private:
  Bytes sequence_;
  // For each length of a beginning: the longest shorter beginning with which it ends.
  std::vector<std::size_t> fallback_;
  std::size_t matched_ = 0;
};

}  // namespace tarsil::detail
