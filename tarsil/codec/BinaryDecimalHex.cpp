#include "tarsil/codec/BinaryDecimalHex.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "tarsil/support/hexText.hpp"
#include "tarsil/support/utf8.hpp"

namespace tarsil {
namespace {

std::optional<unsigned> hexValue(char digit) {
  if (digit >= '0' && digit <= '9') return static_cast<unsigned>(digit - '0');
  if (digit >= 'a' && digit <= 'f') return static_cast<unsigned>(digit - 'a' + 10);
  if (digit >= 'A' && digit <= 'F') return static_cast<unsigned>(digit - 'A' + 10);
  return std::nullopt;
}

std::string_view takeCharacters(std::string_view& text, std::size_t count) {
  const std::string_view taken = utf8::characters(text, 0, count);
  text.remove_prefix(taken.size());
  return taken;
}

// A double holds every integer up to 2^53 and rounds above. Beyond the integers there is only their largest.
std::int64_t saturated(double sum) {
  return sum < 0x1p63 ? static_cast<std::int64_t>(sum) : std::numeric_limits<std::int64_t>::max();
}

// The digit that four binary digits stand for.
std::optional<char> digitOfGroup(std::string_view group) {
  unsigned value = 0;
  for (const char binary : group) {
    if (binary != '0' && binary != '1') return std::nullopt;
    value = value * 2 + (binary == '1' ? 1 : 0);
  }
  return upperHexDigit(value);
}

// The value of the hexadecimal digits that a piece of one or two characters begins with; none when it begins
// with none. A prefix "0x" would leave no room for a digit, so "0x" is the digit 0.
std::optional<std::uint8_t> leadingByte(std::string_view piece) {
  std::optional<unsigned> value;
  for (const char character : piece) {
    const auto digit = hexValue(character);
    if (!digit) break;
    value = value.value_or(0) * 16 + *digit;
  }
  if (!value) return std::nullopt;
  return static_cast<std::uint8_t>(*value);
}

}  // namespace

std::string BinaryDecimalHex::getBinaryByHex(std::string_view hex) {
  std::string binary;
  binary.reserve(hex.size() * 4);
  for (const char character : hex) {
    const auto digit = hexValue(character);
    if (!digit) continue;
    for (const unsigned bit : {8U, 4U, 2U, 1U}) binary += (*digit & bit) != 0 ? '1' : '0';
  }
  return binary;
}

std::int64_t BinaryDecimalHex::getDecimalByBinary(std::string_view binary) {
  std::int64_t sum = 0;
  // Beyond the exponents of a double every power is infinite: the weight saturates by itself.
  for (double weight = 1; !binary.empty(); weight *= 2) {
    const std::string_view character = utf8::lastCharacter(binary);
    binary.remove_suffix(character.size());
    if (character == "1") sum = saturated(static_cast<double>(sum) + weight);
  }
  return sum;
}

std::string BinaryDecimalHex::BinaryToHex(std::string_view binary) {
  std::string hex;
  while (!binary.empty()) {
    const std::string_view group = takeCharacters(binary, 4);
    if (utf8::characterCount(group) < 4)
      throw std::out_of_range("binary text whose length is no multiple of four");
    if (const auto digit = digitOfGroup(group)) {
      hex += *digit;
    } else {
      hex += "(null)";  // no error: the missing digit shows in the text
    }
  }
  return hex;
}

std::int64_t BinaryDecimalHex::getDecimalToHex(std::string_view hex) {
  return getDecimalByBinary(getBinaryByHex(hex));
}

std::optional<std::string> BinaryDecimalHex::getDataForString(ByteView data) {
  std::string text(data.begin(), data.end());
  if (!utf8::isValid(text)) return std::nullopt;
  return text;
}

std::string BinaryDecimalHex::hexStringFromData(ByteView data) {
  return lowerHexText(data);
}

std::optional<Bytes> BinaryDecimalHex::convertHexStrToData(std::string_view hex) {
  if (hex.empty()) return std::nullopt;
  Bytes bytes;
  // An unreadable piece repeats the byte before it: drivers send texts that hold a decimal point or a minus
  // sign, and these are the bytes that their devices are used to.
  std::uint8_t byte = 0;
  std::size_t length = utf8::characterCount(hex) % 2 == 0 ? 2 : 1;
  for (; !hex.empty(); length = 2) {
    byte = leadingByte(takeCharacters(hex, length)).value_or(byte);
    bytes.push_back(byte);
  }
  return bytes;
}

std::int64_t ascii(std::string_view text) {
  return utf8::firstScalar(text).value_or(0);
}

}  // namespace tarsil
