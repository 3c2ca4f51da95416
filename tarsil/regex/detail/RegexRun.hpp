#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "tarsil/regex/detail/RegexProgram.hpp"

namespace tarsil::detail {

/// One attempt of an expression at one text. All ways in which the expression could match are followed side
/// by side, one character at a time, so that no text makes it go back.
class RegexRun {
 public:
  enum class Extent { whole, prefix };

  RegexRun(const RegexProgram& program, std::string_view text);

  /// Call it once.
  bool matches(Extent extent);

 private:
  using Index = std::uint32_t;

  void follow(Index start);
  void step(char32_t character);
  bool isPassable(RegexProgram::Operation assertion) const;
  bool isAtLastLineEnd() const;

  const RegexProgram& program_;
  std::string_view text_;
  std::size_t position_ = 0;
  // The instructions that wait for the next character, each once.
  std::vector<Index> waiting_;
  std::vector<Index> previous_;
  bool matched_ = false;
  // The round (position in characters, from 1) in which an instruction was last reached.
  std::vector<std::size_t> reachedIn_;
  std::size_t round_ = 1;
  std::vector<Index> toFollow_;
};

}  // namespace tarsil::detail
