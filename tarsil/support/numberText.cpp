#include "tarsil/support/numberText.hpp"

#include <locale.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <system_error>

namespace tarsil {
namespace {

// Reading

std::string_view withoutSign(std::string_view text) {
  const bool hasSign = text.starts_with('+') || text.starts_with('-');
  return hasSign ? text.substr(1) : text;
}

std::size_t leadingDigits(std::string_view text) {
  const std::size_t end = text.find_first_not_of("0123456789");
  return end == std::string_view::npos ? text.size() : end;
}

bool isAllDigits(std::string_view text) {
  return !text.empty() && leadingDigits(text) == text.size();
}

bool isNumber(std::string_view text) {
  std::string_view rest = withoutSign(text);
  std::size_t digits = leadingDigits(rest);
  rest.remove_prefix(digits);
  if (rest.starts_with('.')) {
    const std::size_t fraction = leadingDigits(rest.substr(1));
    rest.remove_prefix(1 + fraction);
    digits += fraction;
  }
  if (digits == 0) return false;
  if (rest.empty()) return true;
  const bool hasExponent = rest.front() == 'e' || rest.front() == 'E';
  return hasExponent && isAllDigits(withoutSign(rest.substr(1)));
}

// A host may set a locale whose decimal point is a comma; devices go on writing points.
locale_t plainLocale() {
  static const locale_t plain = newlocale(LC_ALL_MASK, "C", locale_t{});
  return plain;
}

// std::from_chars would say only that a number is out of range, not on which side.
template <class Float, Float (*Convert)(const char*, char**, locale_t)>
std::optional<Float> read(std::string_view text) {
  if (!isNumber(text)) return std::nullopt;
  return Convert(std::string(text).c_str(), nullptr, plainLocale());
}

template <class Float>
std::optional<Float> readNonFinite(std::string_view text) {
  using Limits = std::numeric_limits<Float>;
  if (text == "inf") return Limits::infinity();
  if (text == "-inf") return -Limits::infinity();
  if (text == "nan") return Limits::quiet_NaN();
  return std::nullopt;
}

// Writing

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

std::optional<float> readFloat(std::string_view text) {
  return read<float, strtof_l>(text);
}

std::optional<double> readDouble(std::string_view text) {
  return read<double, strtod_l>(text);
}

std::optional<float> readFloatAllowingNonFinite(std::string_view text) {
  const auto number = readFloat(text);
  return number ? number : readNonFinite<float>(text);
}

std::optional<double> readDoubleAllowingNonFinite(std::string_view text) {
  const auto number = readDouble(text);
  return number ? number : readNonFinite<double>(text);
}

std::optional<std::int64_t> readInteger(std::string_view text) {
  if (!isAllDigits(withoutSign(text))) return std::nullopt;
  if (text.front() == '+') text.remove_prefix(1);
  std::int64_t value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec != std::errc{}) return std::nullopt;
  return value;
}

std::string hexadecimalText(std::int64_t value) {
  std::array<char, 17> buffer;
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, 16);
  return {buffer.data(), result.ptr};
}

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
