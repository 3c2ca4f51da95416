#include "tools/tarsil/replay/Json.hpp"

#include <charconv>
#include <cmath>

#include "tarsil/codec/BinaryDecimalHex.hpp"
#include "tarsil/support/numberText.hpp"

namespace tarsil::cli {

// The double that the float's text names prints as that text again; the float's own value would print more
// digits.
Json number(float value) {
  const std::string text = decimalText(value);
  if (!std::isfinite(value)) return text;
  double named = 0;
  std::from_chars(text.data(), text.data() + text.size(), named);
  return named;
}

Json hexadecimal(ByteView bytes) {
  return BinaryDecimalHex::hexStringFromData(bytes);
}

Json textOrNull(const std::optional<std::string>& text) {
  return text ? Json(*text) : Json();
}

}  // namespace tarsil::cli
