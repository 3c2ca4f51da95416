#include "tarsil/drivers/treadmill/upperHexText.hpp"

namespace tarsil {

std::string upperHexText(ByteView bytes) {
  static constexpr char digits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const std::uint8_t byte : bytes) text += {digits[byte >> 4], digits[byte & 0xF]};
  return text;
}

}  // namespace tarsil
