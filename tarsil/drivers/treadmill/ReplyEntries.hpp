#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <utility>

namespace tarsil {

/// The list of texts that a treadmill has sent, one entry a chunk. The rules for replies look at the whole
/// list, however long it has grown, but ask only for its length, its first `Kept` entries, its last two, and
/// the check over all but the last. So this keeps those answers and not the list: an entry costs the same
/// after a million others, and no noise fills the memory.
template <class Crc, std::size_t Kept>
class ReplyEntries {
 public:
  void append(std::string entry) {
    if (count_ > 0) crcOfAllButLast_.add(last_);
    if (count_ < Kept) first_[count_] = entry;
    beforeLast_ = std::exchange(last_, std::move(entry));
    ++count_;
  }

  void clear() { *this = {}; }

  std::size_t count() const { return count_; }
  /// The entry at a position below `Kept`; empty when the list does not reach it.
  template <std::size_t Position>
  const std::string& at() const {
    static_assert(Position < Kept);
    return first_[Position];
  }
  /// Whether these are the last entry but one and the last.
  bool endsWith(const std::array<std::string, 2>& entries) const {
    return beforeLast_ == entries[0] && last_ == entries[1];
  }
  const Crc& crcOfAllButLast() const { return crcOfAllButLast_; }

 private:
  std::array<std::string, Kept> first_;
  std::string beforeLast_;
  std::string last_;
  std::size_t count_ = 0;
  Crc crcOfAllButLast_;
};

}  // namespace tarsil
