#pragma once

#include <cstdint>

#include "tarsil/support/bytes.hpp"

namespace tarsil::simulators {

/// One measurement as a MEDXING oximeter sends it: 23 95 (hexadecimal) at bytes 4 and 5, the saturation in
/// percent at byte 8, the pulse a minute at byte 9.
inline Bytes medxingFrame(std::uint8_t saturation, std::uint8_t pulse = 0) {
  return {0xAA, 0x55, 0x10, 0x07, 0x23, 0x95, 0x01, 0x48, saturation, pulse, 0x00, 0x00};
}

}  // namespace tarsil::simulators
