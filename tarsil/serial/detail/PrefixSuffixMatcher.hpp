#pragma once

#include <cstdint>
#include <deque>

#include "tarsil/serial/detail/PacketMatcher.hpp"
#include "tarsil/serial/detail/SequenceFinder.hpp"
#include "tarsil/serial/detail/SlidingBytes.hpp"

namespace tarsil::detail {

/// Finds packets that begin with one sequence and end with another. The shortest packet begins at the newest
/// prefix that leaves room for the suffix; that one and the few younger prefixes are all that it remembers,
/// with the bytes from there on. Constant time per byte on average.
class PrefixSuffixMatcher final : public PacketMatcher {
 public:
  /// Neither sequence may be empty or longer than the maximum.
  PrefixSuffixMatcher(Bytes prefix, Bytes suffix, std::uint64_t maximumLength);

  std::optional<Bytes> append(std::uint8_t byte) override;

 private:
  bool leavesRoomForSuffix(std::uint64_t start) const;
  void forgetUselessStarts();
  void dropUselessBytes();
  void reset();

  SequenceFinder prefix_;
  SequenceFinder suffix_;
  std::uint64_t maximumLength_;
  // Positions in the stream, counted from the last packet's end.
  std::uint64_t end_ = 0;
  std::deque<std::uint64_t> starts_;
  SlidingBytes bytes_;
};

}  // namespace tarsil::detail
