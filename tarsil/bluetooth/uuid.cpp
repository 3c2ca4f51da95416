#include "tarsil/bluetooth/uuid.hpp"

#include <algorithm>

namespace tarsil {
namespace {

// Every 16-bit and 32-bit UUID is short for a 128-bit one with this tail.
constexpr std::string_view baseTail = "-0000-1000-8000-00805F9B34FB";
constexpr std::string_view pattern = "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX";

bool isHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
}

char upperCase(char c) {
  return c >= 'a' && c <= 'f' ? static_cast<char>(c - 'a' + 'A') : c;
}

bool fits(std::string_view text, std::string_view shape) {
  return std::equal(text.begin(), text.end(), shape.begin(), shape.end(),
                    [](char c, char place) { return place == 'X' ? isHexDigit(c) : c == place; });
}

std::string to128Bit(std::string text) {
  if (text.size() == 4) text.insert(0, "0000");
  if (text.size() == 8) text += baseTail;
  return text;
}

}  // namespace

std::optional<std::string> bluetoothUUIDText(std::string_view text) {
  std::string full(text);
  std::transform(full.begin(), full.end(), full.begin(), upperCase);
  full = to128Bit(std::move(full));
  if (!fits(full, pattern)) return std::nullopt;
  const bool is16Bit = full.starts_with("0000") && full.ends_with(baseTail);
  return is16Bit ? full.substr(4, 4) : full;
}

}  // namespace tarsil
