#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "tarsil/codec/Crc16Register.hpp"

namespace tarsil {

// What the drivers of the Lode treadmills make frames of, and read replies from: texts of tokens, which
// blanks stand between, and their checks.

/// The check of a Lode treadmill's frames: CRC-16/ARC over their tokens, texts of hexadecimal digits that
/// stand for one byte each. A token that is not exactly two characters long is left out: the treadmill is
/// driven so.
class LodeCrc {
 public:
  void add(std::string_view token);
  /// Low byte, then high byte, as two upper-case hexadecimal digits each.
  std::array<std::string, 2> text() const { return crc_.text(); }

 private:
  Crc16Register crc_;
};

/// The check of a Lode OEM treadmill's frames: CRC-16/ARC over the low bytes of their tokens, texts of
/// hexadecimal digits. The reverse of `LodeCrc`: exactly the tokens of two characters are left out, so that a
/// well-formed frame has the check 00 00. The treadmill is driven so.
class LodeOEMCrc {
 public:
  void add(std::string_view token);
  /// Low byte, then high byte, as two upper-case hexadecimal digits each. Stops the process when a token
  /// stood for more than 16 bits.
  std::array<std::string, 2> textOrStop() const;

 private:
  Crc16Register crc_;
  // Not noticed before the check is asked for: a reply's first entries may be anything until then.
  bool exceeded16Bits_ = false;
};

/// The check over the tokens of a frame's text.
template <class Crc>
Crc crcOf(std::string_view frame) {
  Crc crc;
  while (!frame.empty()) {
    const std::string_view token = frame.substr(0, frame.find(' '));
    crc.add(token);
    frame.remove_prefix(std::min(token.size() + 1, frame.size()));
  }
  return crc;
}

std::string withoutBlanks(std::string text);

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
