#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace tarsil {

/// A running CRC-16/ARC: polynomial 8005 reflected, initial value 0, no final XOR; "123456789" gives BB3D.
/// Adding a byte costs the same however many came before. A value like any other; not shared between threads.
class Crc16Register {
 public:
  void add(std::uint8_t byte);
  std::uint16_t value() const { return value_; }

  /// The value as frames carry it: two upper-case hexadecimal digits for the low byte, then two for the high
  /// byte.
  std::array<std::string, 2> text() const;

  bool operator==(const Crc16Register&) const = default;

 private:
  std::uint16_t value_ = 0;
};

}  // namespace tarsil
