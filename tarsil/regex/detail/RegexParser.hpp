#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "tarsil/regex/detail/RegexNode.hpp"

namespace tarsil::detail {

/// Reads the text of a regular expression. One parser reads one pattern, once.
class RegexParser {
 public:
  /// Throws std::invalid_argument for bytes that are not UTF-8.
  explicit RegexParser(std::string_view pattern);

  /// Throws std::invalid_argument, naming the position (in characters, from 0), for anything that it cannot
  /// read.
  RegexNode parse();

 private:
  struct Repeats {
    unsigned minimum;
    std::optional<unsigned> maximum;
  };

  RegexNode choice();
  RegexNode sequence();
  RegexNode quantified();
  RegexNode atom();
  RegexNode group();
  RegexNode escaped();
  std::optional<Repeats> quantifier();
  Repeats countedRepeats();
  unsigned count();

  CharacterSet characterClass();
  CharacterSet classItem();
  void refuseSetOperator() const;
  /// The set that \d, \w, \s or their opposites stand for; none for every other letter.
  static std::optional<CharacterSet> namedSet(char32_t letter);
  /// The character that an escape stands for, from its letter (already read) on.
  char32_t escapedCharacter(char32_t letter);
  char32_t hexadecimalEscape();
  char32_t hexadecimal(std::size_t minimumDigits, std::size_t maximumDigits);

  bool atEnd() const { return position_ == pattern_.size(); }
  bool at(char32_t character) const { return !atEnd() && pattern_[position_] == character; }
  bool skip(char32_t character);
  /// Throws when the pattern ends here.
  char32_t take();
  [[noreturn]] void fail(const std::string& reason) const;

  std::u32string pattern_;
  std::size_t position_ = 0;
  unsigned depth_ = 0;
};

}  // namespace tarsil::detail
