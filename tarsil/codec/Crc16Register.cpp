#include "tarsil/codec/Crc16Register.hpp"

#include "tarsil/support/hexText.hpp"

namespace tarsil {

void Crc16Register::add(std::uint8_t byte) {
  constexpr unsigned reflectedPolynomial = 0xA001;
  unsigned value = value_ ^ unsigned { byte };
  for (int bit = 0; bit < 8; ++bit) {
    value = (value & 1U) != 0 ? (value >> 1) ^ reflectedPolynomial : value >> 1;
  }
  value_ = static_cast<std::uint16_t>(value);
}

std::array<std::string, 2> Crc16Register::text() const {
  const std::array bytes{static_cast<std::uint8_t>(value_), static_cast<std::uint8_t>(value_ >> 8U)};
  return {upperHexText(ByteView(bytes).first(1)), upperHexText(ByteView(bytes).last(1))};
}

}  // namespace tarsil
