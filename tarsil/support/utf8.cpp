#include "tarsil/support/utf8.hpp"

#include <algorithm>
#include <cstdint>

namespace tarsil::utf8 {
namespace {

constexpr std::size_t longestSequence = 4;

std::uint8_t byteAt(std::string_view text, std::size_t index) {
  return static_cast<std::uint8_t>(text[index]);
}

bool isContinuation(std::uint8_t byte) {
  return (byte & 0xC0) == 0x80;
}

std::size_t lengthAnnouncedBy(std::uint8_t lead) {
  if (lead < 0x80) return 1;
  if (lead < 0xC2) return 0;  // a continuation byte, or the lead of an overlong form
  if (lead < 0xE0) return 2;
  if (lead < 0xF0) return 3;
  if (lead < 0xF5) return 4;
  return 0;
}

// The second byte gives away the remaining overlong forms, the surrogates and what lies above U+10FFFF.
bool secondByteFits(std::uint8_t lead, std::uint8_t second) {
  switch (lead) {
    case 0xE0:
      return second >= 0xA0;
    case 0xED:
      return second < 0xA0;
    case 0xF0:
      return second >= 0x90;
    case 0xF4:
      return second < 0x90;
    default:
      return true;
  }
}

// Length of the code point that the text begins with, 0 when it begins with none.
std::size_t sequenceLength(std::string_view text) {
  if (text.empty()) return 0;
  const std::uint8_t lead = byteAt(text, 0);
  const std::size_t length = lengthAnnouncedBy(lead);
  if (length > text.size()) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if (!isContinuation(byteAt(text, i))) return 0;
  }
  if (length > 1 && !secondByteFits(lead, byteAt(text, 1))) return 0;
  return length;
}

}  // namespace

bool isValid(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t length = sequenceLength(bytes);
    if (length == 0) return false;
    bytes.remove_prefix(length);
  }
  return true;
}

std::size_t characterCount(std::string_view text) {
  std::size_t count = 0;
  for (; !text.empty(); ++count) text.remove_prefix(firstCharacter(text).size());
  return count;
}

std::string_view firstCharacter(std::string_view text) {
  return text.substr(0, std::max<std::size_t>(sequenceLength(text), 1));
}

std::string_view lastCharacter(std::string_view text) {
  for (std::size_t length = 1; length <= std::min(longestSequence, text.size()); ++length) {
    const std::string_view tail = text.substr(text.size() - length);
    if (sequenceLength(tail) == length) return tail;
  }
  return text.substr(text.empty() ? 0 : text.size() - 1);
}

std::optional<char32_t> firstScalar(std::string_view text) {
  const std::size_t length = sequenceLength(text);
  if (length == 0) return std::nullopt;
  const std::uint8_t lead = byteAt(text, 0);
  if (length == 1) return lead;
  char32_t scalar = lead & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) scalar = (scalar << 6) | (byteAt(text, i) & 0x3FU);
  return scalar;
}

std::string_view characters(std::string_view text, std::size_t first, std::size_t count) {
  for (; first > 0 && !text.empty(); --first) text.remove_prefix(firstCharacter(text).size());
  std::string_view rest = text;
  for (; count > 0 && !rest.empty(); --count) rest.remove_prefix(firstCharacter(rest).size());
  return text.substr(0, text.size() - rest.size());
}

std::string_view lastCharacters(std::string_view text, std::size_t count) {
  std::string_view rest = text;
  for (; count > 0 && !rest.empty(); --count) rest.remove_suffix(lastCharacter(rest).size());
  return text.substr(rest.size());
}

}  // namespace tarsil::utf8
