#include "tarsil/drivers/treadmill/LodeFrames.hpp"

#include <cstdint>
#include <limits>

#include "tarsil/codec/BinaryDecimalHex.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil {

void LodeCrc::add(std::string_view token) {
  if (token.size() == 2) crc_.add(static_cast<std::uint8_t>(BinaryDecimalHex::getDecimalToHex(token)));
}

void LodeOEMCrc::add(std::string_view token) {
  if (token.empty() || token.size() == 2) return;
  const std::int64_t value = BinaryDecimalHex::getDecimalToHex(token);
  if (value > std::numeric_limits<std::uint16_t>::max()) exceeded16Bits_ = true;
  crc_.add(static_cast<std::uint8_t>(value));
}

std::array<std::string, 2> LodeOEMCrc::textOrStop() const {
  if (exceeded16Bits_) fatalError("Lode OEM treadmill: a token of a frame does not fit 16 bits");
  return crc_.text();
}

std::string withoutBlanks(std::string text) {
  std::erase(text, ' ');
  return text;
}

}  // namespace tarsil
