#pragma once

#include <vector>

namespace tarsil::detail {

/// A set of Unicode code points.
class CharacterSet {
 public:
  /// Both ends belong to it.
  struct Range {
    char32_t first;
    char32_t last;
  };

  static constexpr char32_t lastCodePoint = 0x10FFFF;

  CharacterSet() = default;
  explicit CharacterSet(char32_t character) : CharacterSet({{character, character}}) {}
  /// The ranges may overlap and come in any order.
  explicit CharacterSet(std::vector<Range> ranges);

  /// 0 to 9.
  static CharacterSet digits();
  /// ASCII letters, digits and the underscore.
  static CharacterSet wordCharacters();
  /// Unicode white space, line ends included.
  static CharacterSet whiteSpace();
  /// What ends a line: U+000A to U+000D, U+0085, U+2028, U+2029.
  static CharacterSet lineEnds();

  bool contains(char32_t character) const;
  void add(const CharacterSet& other);
  CharacterSet inverted() const;

 private:
  void normalise();

  // Ascending, with a gap between any two.
  std::vector<Range> ranges_;
};

}  // namespace tarsil::detail
