#pragma once

#include <bitset>
#include <limits>
#include <string>
#include <string_view>

namespace tarsil {

/// The text that a P10 ergometer has sent so far. Its drivers ask only two things of that text, however long
/// it has grown: which markers have been in it, and what its first characters are. So this keeps those
/// answers and not the text: a byte costs the same after an hour as after a second, and no history fills the
/// memory. Characters are Unicode code points.
class P10Reply {
 public:
  void append(std::string_view text);
  /// Forgets everything.
  void clear();

  /// Whether the ASCII character has been in the text.
  bool contains(char marker) const;
  /// The second to fourth character, or as many of them as there are; "范围越界" while the text has fewer
  /// than two.
  std::string field() const;
  /// The field's number. A field that is no number stops the process.
  float numberOrStop() const;

 private:
  std::bitset<std::numeric_limits<unsigned char>::max() + 1> seen_;
  std::string firstCharacters_;
};

}  // namespace tarsil
