#include "tarsil/drivers/ergometer/detail/powerDigits.hpp"

#include <cstddef>

#include "tarsil/support/truncation.hpp"

namespace tarsil {
namespace {

constexpr std::size_t width = 3;

}  // namespace

std::string powerDigits(float watts) {
  const std::string text = std::to_string(truncatedOrStop(watts, "power in watts"));
  // Too long a number loses its last digits, not its first ones: these ergometers are driven so.
  if (text.size() >= width) return text.substr(0, width);
  return std::string(width - text.size(), '0') + text;
}

}  // namespace tarsil
