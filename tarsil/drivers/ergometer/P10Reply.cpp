#include "tarsil/drivers/ergometer/P10Reply.hpp"

#include <cstddef>

#include "tarsil/support/numberText.hpp"
#include "tarsil/support/process.hpp"
#include "tarsil/support/utf8.hpp"

namespace tarsil {
namespace {

constexpr const char* outOfRange = "范围越界";
// The marker's place, then the field.
constexpr std::size_t fieldStart = 1;
constexpr std::size_t fieldLength = 3;

}  // namespace

void P10Reply::append(std::string_view text) {
  for (const char byte : text) seen_.set(static_cast<unsigned char>(byte));
  const std::size_t missing = fieldStart + fieldLength - utf8::characterCount(firstCharacters_);
  firstCharacters_ += utf8::characters(text, 0, missing);
}

void P10Reply::clear() {
  *this = {};
}

bool P10Reply::contains(char marker) const {
  return seen_.test(static_cast<unsigned char>(marker));
}

std::string P10Reply::field() const {
  const std::string_view field = utf8::characters(firstCharacters_, fieldStart, fieldLength);
  return std::string(field.empty() ? outOfRange : field);
}

float P10Reply::numberOrStop() const {
  const auto number = readFloat(field());
  if (!number) fatalError("P10 ergometer: the field \"" + field() + "\" is no number");
  return *number;
}

}  // namespace tarsil
