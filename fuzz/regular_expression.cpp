#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "fuzz/expect.hpp"
#include "tarsil/regex/RegularExpression.hpp"
#include "tarsil/support/utf8.hpp"

using namespace tarsil;

namespace {

std::optional<RegularExpression> expressionOf(std::string_view pattern) {
  try {
    return RegularExpression(pattern);
  } catch (const std::invalid_argument&) {
    return std::nullopt;
  }
}

}  // namespace

// A pattern, a zero, and the text to match.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const auto end = input.find('\0');
  const std::string_view pattern = input.substr(0, end);
  const std::string_view text = end == std::string_view::npos ? std::string_view() : input.substr(end + 1);

  const auto expression = expressionOf(pattern);
  if (!expression) return 0;
  expect(expression->pattern() == pattern);
  const bool whole = expression->matchesWhole(text);
  const bool prefix = expression->matchesPrefix(text);
  expect(prefix || !whole);
  expect(utf8::isValid(text) || !prefix);
  return 0;
}
