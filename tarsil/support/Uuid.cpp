#include "tarsil/support/Uuid.hpp"

#include <unistd.h>

#include <functional>
#include <stdexcept>

#include "tarsil/support/hexText.hpp"

namespace tarsil {

Uuid Uuid::random() {
  std::array<std::uint8_t, 16> bytes{};
  if (getentropy(bytes.data(), bytes.size()) != 0)
    throw std::runtime_error("the system has no random numbers");
  // The version and the variant have places of their own.
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0FU) | 0x40U);
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3FU) | 0x80U);
  return Uuid(bytes);
}

std::string Uuid::string() const {
  std::string text = upperHexText(bytes_);
  for (const std::size_t place : {8U, 13U, 18U, 23U}) text.insert(place, 1, '-');
  return text;
}

std::size_t Uuid::hash() const {
  return std::hash<std::string>{}(string());
}

}  // namespace tarsil
