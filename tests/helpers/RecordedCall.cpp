#include "tests/helpers/RecordedCall.hpp"

#include <array>
#include <charconv>

namespace tarsil {

std::string floatText(float value) {
  std::array<char, 64> buffer{};
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value).ptr;
  std::string text(buffer.data(), end);
  const bool isWhole = text.find_first_not_of("-0123456789") == std::string::npos;
  return isWhole ? text + ".0" : text;
}

}  // namespace tarsil
