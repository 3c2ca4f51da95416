#include "tests/twins/slowCodecs.hpp"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "tests/twins/Twin.hpp"

namespace tarsil::twins {
namespace {

bool isHexDigit(char character) {
  return std::string("0123456789abcdefABCDEF").find(character) != std::string::npos;
}

template <class Number>
std::string shortestText(Number value, double greatestInDigits) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  const bool inDigits = value == 0 || (std::abs(value) >= Number(1e-4) && std::abs(value) < greatestInDigits);
  std::array<char, 64> buffer{};
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value,
                                 inDigits ? std::chars_format::fixed : std::chars_format::scientific);
  std::string text(buffer.data(), end.ptr);
  if (inDigits && text.find('.') == std::string::npos) text += ".0";
  return text;
}

}  // namespace

std::int64_t truncated(float value) {
  if (!std::isfinite(value) || value < -0x1p63F || value >= 0x1p63F) throw Stops();
  return static_cast<std::int64_t>(value);
}

std::string decimalText(float value) {
  return shortestText(value, 0x1p24);
}

std::string decimalText(double value) {
  return shortestText(value, 0x1p54);
}

std::string lowerHex(std::int64_t value) {
  std::string digits;
  const std::string sign = value < 0 ? "-" : "";
  auto rest = value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
  do {
    digits.insert(digits.begin(), "0123456789abcdef"[rest % 16]);
    rest /= 16;
  } while (rest > 0);
  return sign + digits;
}

std::string upperHex(ByteView bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += "0123456789ABCDEF"[byte / 16];
    text += "0123456789ABCDEF"[byte % 16];
  }
  return text;
}

Bytes bytesOf(const std::string& hexText) {
  Bytes bytes;
  std::uint32_t value = 0;
  std::size_t at = 0;
  while (at < hexText.size()) {
    const std::size_t length = at == 0 && hexText.size() % 2 == 1 ? 1 : 2;
    const std::string piece = hexText.substr(at, length);
    at += length;
    std::string digits;
    for (const char character : piece) {
      if (!isHexDigit(character)) break;
      digits += character;
    }
    if (!digits.empty()) value = static_cast<std::uint32_t>(std::strtoul(digits.c_str(), nullptr, 16));
    bytes.push_back(static_cast<std::uint8_t>(value));
  }
  return bytes;
}

std::int64_t numberOf(const std::string& hexText) {
  std::string digits;
  for (const char character : hexText) {
    if (isHexDigit(character)) digits += character;
  }
  return digits.empty() ? 0 : std::strtoll(digits.c_str(), nullptr, 16);
}

std::vector<std::string> piecesOf(const std::string& text) {
  std::vector<std::string> pieces{""};
  for (const char character : text) {
    if (character == ' ') {
      pieces.emplace_back();
    } else {
      pieces.back() += character;
    }
  }
  return pieces;
}

std::vector<std::string> checkOf(const std::vector<std::int64_t>& values) {
  unsigned check = 0;
  for (const std::int64_t value : values) {
    check ^= static_cast<unsigned>(value & 0xFF);
    for (int bit = 0; bit < 8; ++bit) check = check % 2 == 1 ? (check / 2) ^ 0xA001U : check / 2;
  }
  return {upperHex(Bytes{static_cast<std::uint8_t>(check % 256)}),
          upperHex(Bytes{static_cast<std::uint8_t>(check / 256)})};
}

std::string repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

}  // namespace tarsil::twins
