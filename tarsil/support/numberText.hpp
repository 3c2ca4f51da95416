#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarsil {

/// The number that the whole text is: an optional sign, digits with an optional fraction ("5." and ".5" too),
/// an optional decimal exponent ("1e-05"). None for anything else: blanks, a carriage return, letters,
/// hexadecimal, "inf", "nan", the empty text. Rounded to the nearest value; one that is too large gives
/// infinity with its sign, one that is too small gives zero with its sign. Does not depend on the locale. Any
/// thread.
std::optional<float> readFloat(std::string_view text);
std::optional<double> readDouble(std::string_view text);

/// As above, and "inf", "-inf" and "nan" are numbers too: everything that `decimalText` writes reads back.
std::optional<float> readFloatAllowingNonFinite(std::string_view text);
std::optional<double> readDoubleAllowingNonFinite(std::string_view text);

/// The base-10 integer that the whole text is: an optional sign, then digits. None for anything else and for
/// what does not fit 64 bits. Any thread.
std::optional<std::int64_t> readInteger(std::string_view text);

/// Lower-case hexadecimal digits without padding, with a minus sign when negative: "0", "a", "1f", "-200".
/// Any thread.
std::string hexadecimalText(std::int64_t value);

/// The shortest decimal text that reads back as the same value, always with a fraction: "5.0", "87.5",
/// "-0.0". Decimal form from 1e-4 up to and including 2^24, exponent form outside, with a sign and two digits
/// at least: "1e-05", "1.6777218e+07". Otherwise "inf", "-inf" and "nan". Does not depend on the locale. Any
/// thread.
std::string decimalText(float value);
/// The same for a double, in decimal form up to and including 2^54.
std::string decimalText(double value);

/// The value with exactly one decimal, rounded to nearest, an exact half to the even tenth: "3.1", "0.2" for
/// 0.25. A value that is not finite gives the text of `decimalText`. Does not depend on the locale. Any
/// thread.
std::string oneDecimalText(float value);

}  // namespace tarsil
