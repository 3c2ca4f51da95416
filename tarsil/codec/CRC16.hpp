#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace tarsil {

/// The check of the frame formats that carry one.
class CRC16 {
 public:
  /// CRC-16/ARC over the low bytes of `values` (0x0141 counts as 0x41): two upper-case hexadecimal digits for
  /// its low byte, then two for its high byte. "123456789" gives "3D" and "BB", no values give "00" and "00".
  /// Any thread.
  static std::array<std::string, 2> calculateCRC(std::span<const std::uint16_t> values);
};

}  // namespace tarsil
