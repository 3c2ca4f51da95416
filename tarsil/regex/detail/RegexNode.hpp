#pragma once

#include <optional>
#include <vector>

#include "tarsil/regex/detail/CharacterSet.hpp"

namespace tarsil::detail {

/// A piece of a parsed regular expression.
struct RegexNode {
  enum class Kind {
    characters,   ///< one character of `set`
    startOfText,  ///< nothing, at the start of the text
    endOfText,    ///< nothing, at the end of the text
    lastLineEnd,  ///< nothing, at the end of the text or before a line end that ends it
    sequence,     ///< all children, one after the other; without children it matches nothing at all, always
    choice,       ///< any one child
    repetition,   ///< the only child, `minimum` to `maximum` times
  };

  Kind kind = Kind::sequence;
  CharacterSet set;
  std::vector<RegexNode> children;
  unsigned minimum = 0;
  /// None: as often as you like.
  std::optional<unsigned> maximum;
};

}  // namespace tarsil::detail
