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
  std::string text;
  for (std::size_t i = 0; i < bytes_.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += upperHexText(ByteView(&bytes_[i], 1));
  }
  return text;
}

std::size_t Uuid::hash() const {
  return std::hash<std::string>{}(string());
}

}  // namespace tarsil
