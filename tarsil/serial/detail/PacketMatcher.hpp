#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "tarsil/serial/ORSSerialBuffer.hpp"
#include "tarsil/serial/detail/SlidingBytes.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil {
class ORSSerialPacketDescriptor;
}

namespace tarsil::detail {

/// Looks for one descriptor's packets in a stream of bytes, and keeps of the stream what that takes. It finds
/// what asking the descriptor after every byte about a buffer of its maximum length would find.
class PacketMatcher {
 public:
  virtual ~PacketMatcher() = default;

  /// The packet that this byte completes, if any. After a packet the stream begins anew.
  virtual std::optional<Bytes> append(std::uint8_t byte) = 0;

  /// How many of the first bytes need not be appended: they are no part of a packet, and nothing is kept of
  /// them.
  virtual std::size_t useless(ByteView bytes) const = 0;

  /// Takes in those of the first bytes that are quickly seen to complete no packet, in place of `append`, and
  /// tells how many they are.
  virtual std::size_t pass(ByteView bytes) { return useless(bytes); }

  /// The quickest one for the descriptor.
  static std::unique_ptr<PacketMatcher> make(
      const std::shared_ptr<const ORSSerialPacketDescriptor>& descriptor);
};

/// Finds a sequence of bytes in a stream (Knuth, Morris and Pratt): constant time per byte on average.
class SequenceFinder {
 public:
  /// The sequence must not be empty.
  explicit SequenceFinder(Bytes sequence);

  const Bytes& sequence() const { return sequence_; }

  /// True when the sequence ends with this byte. Occurrences may overlap.
  bool feed(std::uint8_t byte);

  /// Feeds the bytes up to the one with which the sequence ends, without that one, and tells how many they
  /// are.
  std::size_t pass(ByteView bytes);

  /// How many of the newest bytes may be the beginning of an occurrence (after a find: the sequence's
  /// length).
  std::size_t matched() const { return matched_; }

  /// How many of the first bytes come before the next possible beginning; none when one has begun.
  std::size_t useless(ByteView bytes) const;

  /// Forgets all bytes.
  void reset() { matched_ = 0; }

 private:
  bool isCompletedBy(std::uint8_t byte) const;

  Bytes sequence_;
  // For each length of a beginning: the longest shorter beginning with which it ends.
  std::vector<std::size_t> fallback_;
  std::size_t matched_ = 0;
};

/// Finds packets that are exactly one sequence of bytes. Constant time per byte on average; keeps no bytes.
class SequenceMatcher final : public PacketMatcher {
 public:
  /// The sequence must not be empty.
  explicit SequenceMatcher(Bytes sequence);

  std::optional<Bytes> append(std::uint8_t byte) override;
  std::size_t useless(ByteView bytes) const override;
  std::size_t pass(ByteView bytes) override { return finder_.pass(bytes); }

 private:
  SequenceFinder finder_;
};

/// Finds packets that begin with one sequence and end with another. The shortest packet begins at the newest
/// prefix that leaves room for the suffix; that one and the few younger prefixes are all that it remembers,
/// with the bytes from there on. Constant time per byte on average.
class PrefixSuffixMatcher final : public PacketMatcher {
 public:
  /// Neither sequence may be empty or longer than the maximum.
  PrefixSuffixMatcher(Bytes prefix, Bytes suffix, std::uint64_t maximumLength);

  std::optional<Bytes> append(std::uint8_t byte) override;
  std::size_t useless(ByteView bytes) const override;
  std::size_t pass(ByteView bytes) override;

 private:
  void passWithinPacket(ByteView bytes);
  bool leavesRoomForSuffix(std::uint64_t start) const;
  void forgetUselessStarts();
  void dropUselessBytes();
  void reset();

  SequenceFinder prefix_;
  SequenceFinder suffix_;
  std::uint64_t maximumLength_;
  // Positions in the stream, counted from the last packet's end without the bytes that were passed over.
  std::uint64_t end_ = 0;
  std::deque<std::uint64_t> starts_;
  SlidingBytes bytes_;
};

/// Finds packets by asking the descriptor after every byte. For evaluators and regular expressions, whose
/// verdicts on one tail say nothing about the next.
class EveryTailMatcher final : public PacketMatcher {
 public:
  EveryTailMatcher(std::shared_ptr<const ORSSerialPacketDescriptor> descriptor, std::uint64_t maximumLength);

  std::optional<Bytes> append(std::uint8_t byte) override;
  std::size_t useless(ByteView bytes) const override;

 private:
  std::shared_ptr<const ORSSerialPacketDescriptor> descriptor_;
  ORSSerialBuffer buffer_;
};

}  // namespace tarsil::detail
