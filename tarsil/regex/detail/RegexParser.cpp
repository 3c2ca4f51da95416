#include "tarsil/regex/detail/RegexParser.hpp"

#include <cstdint>
#include <stdexcept>
#include <utility>

#include "tarsil/support/utf8.hpp"

namespace tarsil::detail {
namespace {

using Kind = RegexNode::Kind;

// Deeper nesting and larger counts are nobody's packet; the limits keep a pattern from exhausting stack or
// memory.
constexpr unsigned maximumDepth = 64;
constexpr unsigned maximumCount = 1000;

RegexNode node(Kind kind) {
  RegexNode result;
  result.kind = kind;
  return result;
}

RegexNode characters(CharacterSet set) {
  RegexNode result = node(Kind::characters);
  result.set = std::move(set);
  return result;
}

std::optional<unsigned> digitValue(char32_t digit) {
  if (digit >= U'0' && digit <= U'9') return static_cast<unsigned>(digit - U'0');
  if (digit >= U'a' && digit <= U'f') return static_cast<unsigned>(digit - U'a' + 10);
  if (digit >= U'A' && digit <= U'F') return static_cast<unsigned>(digit - U'A' + 10);
  return std::nullopt;
}

bool isAsciiLetterOrDigit(char32_t character) {
  return character != U'_' && CharacterSet::wordCharacters().contains(character);
}

bool isScalar(char32_t value) {
  return value <= CharacterSet::lastCodePoint && (value < 0xD800 || value > 0xDFFF);
}

}  // namespace

RegexParser::RegexParser(std::string_view pattern) {
  while (!pattern.empty()) {
    const auto scalar = utf8::firstScalar(pattern);
    if (!scalar) fail("the pattern is not valid UTF-8");
    pattern_ += *scalar;
    pattern.remove_prefix(utf8::firstCharacter(pattern).size());
    ++position_;
  }
  position_ = 0;
}

RegexNode RegexParser::parse() {
  RegexNode result = choice();
  if (!atEnd()) fail("')' without '('");
  return result;
}

RegexNode RegexParser::choice() {
  if (++depth_ > maximumDepth) fail("groups are nested too deep");
  RegexNode result = node(Kind::choice);
  do {
    result.children.push_back(sequence());
  } while (skip(U'|'));
  --depth_;
  return result;
}

RegexNode RegexParser::sequence() {
  RegexNode result = node(Kind::sequence);
  while (!atEnd() && !at(U'|') && !at(U')')) result.children.push_back(quantified());
  return result;
}

RegexNode RegexParser::quantified() {
  RegexNode piece = atom();
  const auto repeats = quantifier();
  if (!repeats) return piece;

  RegexNode result = node(Kind::repetition);
  result.minimum = repeats->minimum;
  result.maximum = repeats->maximum;
  result.children.push_back(std::move(piece));
  return result;
}

RegexNode RegexParser::atom() {
  const char32_t character = take();
  switch (character) {
    case U'(':
      return group();
    case U'[':
      return characters(characterClass());
    case U'.':
      return characters(CharacterSet::lineEnds().inverted());
    case U'^':
      return node(Kind::startOfText);
    case U'$':
      return node(Kind::lastLineEnd);
    case U'\\':
      return escaped();
    case U'*':
    case U'+':
    case U'?':
    case U'{':
      fail("nothing to repeat");
    case U'}':
      fail("'}' without '{'");
    default:
      return characters(CharacterSet(character));
  }
}

RegexNode RegexParser::group() {
  if (skip(U'?') && !skip(U':')) fail("of the groups that begin with '(?', only '(?:' is known");
  RegexNode result = choice();
  if (!skip(U')')) fail("'(' without ')'");
  return result;
}

RegexNode RegexParser::escaped() {
  const char32_t letter = take();
  if (auto set = namedSet(letter)) return characters(*std::move(set));
  switch (letter) {
    case U'A':
      return node(Kind::startOfText);
    case U'Z':
      return node(Kind::lastLineEnd);
    case U'z':
      return node(Kind::endOfText);
    default:
      return characters(CharacterSet(escapedCharacter(letter)));
  }
}

std::optional<RegexParser::Repeats> RegexParser::quantifier() {
  std::optional<Repeats> result;
  if (skip(U'*')) {
    result = {0, std::nullopt};
  } else if (skip(U'+')) {
    result = {1, std::nullopt};
  } else if (skip(U'?')) {
    result = {0, 1};
  } else if (skip(U'{')) {
    result = countedRepeats();
  } else {
    return std::nullopt;
  }
  // Reluctance changes which match is found, not whether there is one; possessiveness would change that.
  skip(U'?');
  if (at(U'+')) fail("possessive quantifiers are not known");
  return result;
}

RegexParser::Repeats RegexParser::countedRepeats() {
  Repeats result{count(), std::nullopt};
  if (!skip(U',')) {
    result.maximum = result.minimum;
  } else if (!at(U'}')) {
    result.maximum = count();
    if (*result.maximum < result.minimum) fail("a repetition's maximum is below its minimum");
  }
  if (!skip(U'}')) fail("'{' without '}'");
  return result;
}

unsigned RegexParser::count() {
  if (atEnd() || !CharacterSet::digits().contains(pattern_[position_])) fail("a repetition needs a count");
  unsigned result = 0;
  while (!atEnd() && CharacterSet::digits().contains(pattern_[position_])) {
    result = result * 10 + *digitValue(take());
    if (result > maximumCount) fail("a repetition's count is above 1000");
  }
  return result;
}

CharacterSet RegexParser::characterClass() {
  const bool inverted = skip(U'^');
  if (at(U']')) fail("a class has no characters");
  CharacterSet result;
  while (!skip(U']')) result.add(classItem());
  return inverted ? result.inverted() : result;
}

CharacterSet RegexParser::classItem() {
  refuseSetOperator();
  char32_t first = take();
  if (first == U'\\') {
    const char32_t letter = take();
    if (auto set = namedSet(letter)) return *std::move(set);
    first = escapedCharacter(letter);
  }
  // A '-' before the closing bracket stands for itself.
  const bool isRange = at(U'-') && position_ + 1 < pattern_.size() && pattern_[position_ + 1] != U']';
  if (!isRange) return CharacterSet(first);

  refuseSetOperator();
  skip(U'-');
  refuseSetOperator();
  char32_t last = take();
  if (last == U'\\') last = escapedCharacter(take());
  if (last < first) fail("a range of a class runs backwards");
  return CharacterSet({{first, last}});
}

void RegexParser::refuseSetOperator() const {
  if (at(U'[')) fail("'[' inside a class is written '\\['");
  const bool isDoubled = position_ + 1 < pattern_.size() && pattern_[position_ + 1] == pattern_[position_];
  if (isDoubled && (at(U'&') || at(U'-'))) fail("set operators inside a class are not known");
}

std::optional<CharacterSet> RegexParser::namedSet(char32_t letter) {
  switch (letter) {
    case U'd':
      return CharacterSet::digits();
    case U'D':
      return CharacterSet::digits().inverted();
    case U'w':
      return CharacterSet::wordCharacters();
    case U'W':
      return CharacterSet::wordCharacters().inverted();
    case U's':
      return CharacterSet::whiteSpace();
    case U'S':
      return CharacterSet::whiteSpace().inverted();
    default:
      return std::nullopt;
  }
}

char32_t RegexParser::escapedCharacter(char32_t letter) {
  switch (letter) {
    case U't':
      return U'\t';
    case U'n':
      return U'\n';
    case U'r':
      return U'\r';
    case U'f':
      return U'\f';
    case U'a':
      return U'\a';
    case U'e':
      return 0x1B;
    case U'x':
      return hexadecimalEscape();
    case U'u':
      return hexadecimal(4, 4);
    default:
      break;
  }
  if (isAsciiLetterOrDigit(letter)) fail("this escape is not known");
  return letter;
}

char32_t RegexParser::hexadecimalEscape() {
  if (!skip(U'{')) return hexadecimal(2, 2);
  const char32_t result = hexadecimal(1, 6);
  if (!skip(U'}')) fail("'\\x{' without '}'");
  return result;
}

char32_t RegexParser::hexadecimal(std::size_t minimumDigits, std::size_t maximumDigits) {
  char32_t result = 0;
  std::size_t digits = 0;
  while (digits < maximumDigits && !atEnd() && digitValue(pattern_[position_])) {
    result = result * 16 + static_cast<char32_t>(*digitValue(take()));
    ++digits;
  }
  if (digits < minimumDigits) fail("a hexadecimal escape has too few digits");
  if (!isScalar(result)) fail("a hexadecimal escape names no character");
  return result;
}

bool RegexParser::skip(char32_t character) {
  if (!at(character)) return false;
  ++position_;
  return true;
}

char32_t RegexParser::take() {
  if (atEnd()) fail("the pattern ends too early");
  return pattern_[position_++];
}

void RegexParser::fail(const std::string& reason) const {
  throw std::invalid_argument("regular expression, at character " + std::to_string(position_) + ": " +
                              reason);
}

}  // namespace tarsil::detail
