#include "tarsil/support/floatText.hpp"

#include <array>
#include <charconv>
#include <cmath>
#include <string_view>

namespace tarsil {
namespace {

// The longest texts are one-decimal ones: 39 digits before the point, sign, point and fraction.
using Buffer = std::array<char, 64>;

template <class Float>
std::string nonFiniteText(Float value) {
  if (std::isnan(value)) return "nan";
  return value > 0 ? "inf" : "-inf";
}

template <class Float, class... Form>
std::string toText(Float value, Form... form) {
  Buffer buffer;
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, form...);
  return {buffer.data(), result.ptr};
}

template <class Float>
std::string shortestText(Float value, Float largestDecimal) {
  if (!std::isfinite(value)) return nonFiniteText(value);
  if (std::abs(value) > largestDecimal) return toText(value, std::chars_format::scientific);

  // Not the value but its digits decide at the lower end: the float nearest to 1e-4 is a little less than
  // that.
  std::string scientific = toText(value, std::chars_format::scientific);
  const std::string_view exponent = std::string_view(scientific).substr(scientific.find('e') + 1);
  if (exponent.front() == '-' && exponent > "-04") return scientific;

  std::string decimal = toText(value, std::chars_format::fixed);
  if (decimal.find('.') == std::string::npos) decimal += ".0";
  return decimal;
}

}  // namespace

std::string decimalText(float value) {
  return shortestText(value, 0x1p24F);
}

std::string decimalText(double value) {
  return shortestText(value, 0x1p54);
}

std::string oneDecimalText(float value) {
  if (!std::isfinite(value)) return nonFiniteText(value);
  return toText(value, std::chars_format::fixed, 1);
}

}  // namespace tarsil
