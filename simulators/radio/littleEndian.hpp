#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "tarsil/support/bytes.hpp"

namespace tarsil::simulators {

/// Bluetooth's byte order: the low byte first.
constexpr std::uint16_t read16(ByteView bytes, std::size_t position) {
  return static_cast<std::uint16_t>(bytes[position] | (bytes[position + 1] << 8U));
}

inline void append16(Bytes& bytes, unsigned value) {
  bytes.push_back(static_cast<std::uint8_t>(value & 0xFFU));
  bytes.push_back(static_cast<std::uint8_t>((value >> 8U) & 0xFFU));
}

inline void append(Bytes& bytes, ByteView more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}

/// The 16-bit values, one after the other.
inline Bytes littleEndian16(std::initializer_list<unsigned> values) {
  Bytes bytes;
  for (const unsigned value : values) append16(bytes, value);
  return bytes;
}

}  // namespace tarsil::simulators
