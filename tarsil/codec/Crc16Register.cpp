#include "tarsil/codec/Crc16Register.hpp"

#include <string_view>

namespace tarsil {
namespace {

std::string twoDigits(unsigned byte) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  return {digits[(byte >> 4) & 0x0F], digits[byte & 0x0F]};
}

}  // namespace

void Crc16Register::add(std::uint8_t byte) {
  constexpr unsigned reflectedPolynomial = 0xA001;
  unsigned value = value_ ^ unsigned { byte };
  for (int bit = 0; bit < 8; ++bit) {
    value = (value & 1U) != 0 ? (value >> 1) ^ reflectedPolynomial : value >> 1;
  }
  value_ = static_cast<std::uint16_t>(value);
}

std::array<std::string, 2> Crc16Register::text() const {
  return {twoDigits(value_), twoDigits(value_ >> 8U)};
}

}  // namespace tarsil
