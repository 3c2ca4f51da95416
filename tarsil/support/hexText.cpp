#include "tarsil/support/hexText.hpp"

#include <string_view>

namespace tarsil {
namespace {

constexpr std::string_view upperDigits = "0123456789ABCDEF";
constexpr std::string_view lowerDigits = "0123456789abcdef";

std::string hexText(ByteView bytes, std::string_view digits) {
  std::string text;
  text.reserve(2 * bytes.size());
  for (const std::uint8_t byte : bytes) text += {digits[byte >> 4U], digits[byte & 0x0FU]};
  return text;
}

}  // namespace

std::string lowerHexText(ByteView bytes) {
  return hexText(bytes, lowerDigits);
}

std::string upperHexText(ByteView bytes) {
  return hexText(bytes, upperDigits);
}

char upperHexDigit(unsigned value) {
  return upperDigits[value];
}

}  // namespace tarsil
