#pragma once

#include <string>

namespace tarsil {

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
