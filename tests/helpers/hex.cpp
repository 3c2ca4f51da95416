#include "tests/helpers/hex.hpp"

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace tarsil {

Bytes hex(std::string_view pairs) {
  std::string digits(pairs);
  std::erase(digits, ' ');
  if (digits.size() % 2 != 0) throw std::invalid_argument("odd number of digits: " + digits);
  Bytes bytes;
  for (std::size_t at = 0; at < digits.size(); at += 2) {
    std::uint8_t byte = 0;
    const char* end = digits.data() + at + 2;
    if (std::from_chars(digits.data() + at, end, byte, 16).ptr != end)
      throw std::invalid_argument("not hexadecimal: " + digits);
    bytes.push_back(byte);
  }
  return bytes;
}

std::string hexText(ByteView bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string line;
  for (const std::uint8_t byte : bytes) {
    if (!line.empty()) line += ' ';
    line += digits[byte >> 4U];
    line += digits[byte & 15U];
  }
  return line;
}

Bytes text(std::string_view characters) {
  return {characters.begin(), characters.end()};
}

}  // namespace tarsil
