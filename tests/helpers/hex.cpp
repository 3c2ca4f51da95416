#include "tests/helpers/hex.hpp"

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "tarsil/support/hexText.hpp"

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
  std::string line;
  for (const std::uint8_t byte : bytes) {
    if (!line.empty()) line += ' ';
    line += lowerHexText({&byte, 1});
  }
  return line;
}

Bytes text(std::string_view characters) {
  return {characters.begin(), characters.end()};
}

}  // namespace tarsil
