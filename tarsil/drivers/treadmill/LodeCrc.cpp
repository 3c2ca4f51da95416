#include "tarsil/drivers/treadmill/LodeCrc.hpp"

#include <cstdint>

#include "tarsil/codec/BinaryDecimalHex.hpp"

namespace tarsil {

void LodeCrc::add(std::string_view token) {
  if (token.size() == 2) crc_.add(static_cast<std::uint8_t>(BinaryDecimalHex::getDecimalToHex(token)));
}

}  // namespace tarsil
