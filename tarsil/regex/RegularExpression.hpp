#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace tarsil {

namespace detail {
class RegexProgram;
}

/// A regular expression over UTF-8 text, matched in time proportional to the text's length and without
/// recursion, whatever the text: it is safe to hand it bytes from a device. Text that is not valid UTF-8
/// matches nothing. Immutable; copies are cheap and share the expression. Any thread.
///
/// Syntax, over Unicode code points:
/// - literals; `\` before punctuation; `\t \n \r \f \a \e \xHH \x{H...} \uHHHH`
/// - `.` (everything but a line end: U+000A to U+000D, U+0085, U+2028, U+2029)
/// - `\d` (0 to 9), `\w` (ASCII letters, digits and `_`), `\s` (Unicode white space), `\D`, `\W`, `\S`
/// - classes `[...]` and `[^...]` with ranges and the escapes above
/// - groups `(...)` and `(?:...)`, alternatives `|`
/// - `* + ? {m} {m,} {m,n}` with counts up to 1000; a `?` behind one changes no verdict
/// - `^` and `\A`: start of the text; `\z`: its end; `$` and `\Z`: its end, or the line end that ends it
class RegularExpression {
 public:
  /// Throws std::invalid_argument for a pattern that is no expression, uses what the list above lacks
  /// (back references, look-around, `\b`, `\p`, possessive quantifiers, set operators, ...) or grows too
  /// large.
  explicit RegularExpression(std::string_view pattern);

  const std::string& pattern() const { return pattern_; }

  /// True when the expression matches the text from its first to its last character.
  bool matchesWhole(std::string_view text) const;

  /// True when the expression matches at the start of the text; the match may be empty and need not reach the
  /// end. The whole text has to be valid UTF-8 all the same.
  bool matchesPrefix(std::string_view text) const;

 private:
  std::string pattern_;
  std::shared_ptr<const detail::RegexProgram> program_;
};

}  // namespace tarsil
