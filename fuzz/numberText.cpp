#include "tarsil/support/numberText.hpp"

#include <cmath>
#include <cstdint>
#include <string_view>

#include "fuzz/expect.hpp"

using namespace tarsil;

namespace {

template <class Float>
bool isSame(Float left, Float right) {
  return left == right && std::signbit(left) == std::signbit(right);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto single = readFloat(text);
  const auto twice = readDouble(text);
  expect(single.has_value() == twice.has_value());

  const bool looksLikeANumber = text.find_first_not_of("0123456789+-.eE") == std::string_view::npos;
  if (single) {
    expect(looksLikeANumber);
    expect(!std::isnan(*single) && !std::isnan(*twice));
    expect(isSame(readFloatAllowingNonFinite(decimalText(*single)).value(), *single));
    expect(isSame(readDoubleAllowingNonFinite(decimalText(*twice)).value(), *twice));
    expect(isSame(readFloatAllowingNonFinite(text).value(), *single));
    oneDecimalText(*single);
  }

  if (const auto integer = readInteger(text)) {
    expect(twice && isSame(std::abs(*twice), std::abs(static_cast<double>(*integer))));
    expect(!hexadecimalText(*integer).empty());
  }
  return 0;
}
