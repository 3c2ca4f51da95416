#pragma once

#include <cstddef>
#include <cstdint>

#include "tarsil/support/bytes.hpp"

namespace tarsil::detail {

/// The newest bytes of a stream, up to a maximum, in one piece. Appending and dropping a byte take constant
/// time on average, however many are held; nothing is allocated ahead.
class SlidingBytes {
 public:
  explicit SlidingBytes(std::uint64_t maximumLength) : maximumLength_(maximumLength) {}

  /// The oldest bytes beyond the maximum fall out.
  void append(ByteView bytes);
  /// Drops the oldest `count` bytes (all, when there are no more).
  void dropFront(std::size_t count);
  void clear();

  std::uint64_t maximumLength() const { return maximumLength_; }
  std::size_t size() const { return stored_.size() - first_; }
  /// Valid until the bytes change.
  ByteView view() const { return ByteView(stored_).subspan(first_); }

 private:
  std::uint64_t maximumLength_;
  // Dropped bytes stay at the front until they are half of what is stored.
  Bytes stored_;
  std::size_t first_ = 0;
};

}  // namespace tarsil::detail
