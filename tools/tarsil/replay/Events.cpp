#include "tools/tarsil/replay/Events.hpp"

#include <charconv>
#include <cmath>
#include <utility>

#include "tarsil/codec/BinaryDecimalHex.hpp"
#include "tarsil/support/floatText.hpp"

namespace tarsil::cli {

void Events::add(const Json& event) {
  if (muted_) return;
  // The source adds its events through this function, too.
  if (const auto before = std::exchange(before_, nullptr)) {
    before();
    before_ = before;
  }
  listener_(event);
}

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

}  // namespace tarsil::cli
