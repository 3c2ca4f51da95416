#include "tarsil/regex/detail/CharacterSet.hpp"

#include <algorithm>
#include <utility>

namespace tarsil::detail {

CharacterSet::CharacterSet(std::vector<Range> ranges) : ranges_(std::move(ranges)) {
  normalise();
}

CharacterSet CharacterSet::digits() {
  return CharacterSet({{U'0', U'9'}});
}

CharacterSet CharacterSet::wordCharacters() {
  return CharacterSet({{U'0', U'9'}, {U'A', U'Z'}, {U'_', U'_'}, {U'a', U'z'}});
}

CharacterSet CharacterSet::whiteSpace() {
  return CharacterSet({{0x09, 0x0D},
                       {0x20, 0x20},
                       {0x85, 0x85},
                       {0xA0, 0xA0},
                       {0x1680, 0x1680},
                       {0x2000, 0x200A},
                       {0x2028, 0x2029},
                       {0x202F, 0x202F},
                       {0x205F, 0x205F},
                       {0x3000, 0x3000}});
}

CharacterSet CharacterSet::lineEnds() {
  return CharacterSet({{0x0A, 0x0D}, {0x85, 0x85}, {0x2028, 0x2029}});
}

bool CharacterSet::contains(char32_t character) const {
  const auto after = std::upper_bound(ranges_.begin(), ranges_.end(), character,
                                      [](char32_t value, const Range& range) { return value < range.first; });
  return after != ranges_.begin() && character <= std::prev(after)->last;
}

void CharacterSet::add(const CharacterSet& other) {
  ranges_.insert(ranges_.end(), other.ranges_.begin(), other.ranges_.end());
  normalise();
}

CharacterSet CharacterSet::inverted() const {
  CharacterSet result;
  char32_t next = 0;
  for (const Range& range : ranges_) {
    if (next < range.first) result.ranges_.push_back({next, range.first - 1});
    next = range.last + 1;
  }
  if (next <= lastCodePoint) result.ranges_.push_back({next, lastCodePoint});
  return result;
}

void CharacterSet::normalise() {
  std::sort(ranges_.begin(), ranges_.end(), [](const Range& a, const Range& b) { return a.first < b.first; });
  std::vector<Range> merged;
  for (const Range& range : ranges_) {
    if (!merged.empty() && range.first <= merged.back().last + 1) {
      merged.back().last = std::max(merged.back().last, range.last);
    } else {
      merged.push_back(range);
    }
  }
  ranges_ = std::move(merged);
}

}  // namespace tarsil::detail
