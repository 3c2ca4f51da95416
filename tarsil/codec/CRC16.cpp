#include "tarsil/codec/CRC16.hpp"

#include "tarsil/codec/Crc16Register.hpp"

namespace tarsil {

std::array<std::string, 2> CRC16::calculateCRC(std::span<const std::uint16_t> values) {
  Crc16Register crc;
  for (const std::uint16_t value : values) crc.add(static_cast<std::uint8_t>(value & 0xFF));
  return crc.text();
}

}  // namespace tarsil
