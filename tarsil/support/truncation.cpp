#include "tarsil/support/truncation.hpp"

#include <string>

#include "tarsil/support/numberText.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil {
namespace {

template <class Float>
std::int64_t truncated(Float value, std::string_view what) {
  // -2^63 is an integer of 64 bits, 2^63 is not. "Not a number" is on neither side of anything.
  const bool fits = value >= static_cast<Float>(-0x1p63) && value < static_cast<Float>(0x1p63);
  if (!fits) fatalError(std::string(what) + " does not fit a 64-bit integer: " + decimalText(value));
  return static_cast<std::int64_t>(value);
}

}  // namespace

std::int64_t truncatedOrStop(float value, std::string_view what) {
  return truncated(value, what);
}

std::int64_t truncatedOrStop(double value, std::string_view what) {
  return truncated(value, what);
}

}  // namespace tarsil
