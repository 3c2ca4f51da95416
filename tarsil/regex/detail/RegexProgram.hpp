#pragma once

#include <bitset>
#include <cstdint>
#include <string_view>
#include <vector>

#include "tarsil/regex/detail/CharacterSet.hpp"
#include "tarsil/regex/detail/RegexNode.hpp"

namespace tarsil::detail {

/// A regular expression as the instructions of a non-deterministic automaton, begun at instruction 0.
class RegexProgram {
 public:
  enum class Operation : std::uint8_t {
    characters,   ///< consumes a character of the set `operand`
    fork,         ///< goes on at `next` and at `operand`
    startOfText,  ///< goes on when at the start of the text
    endOfText,    ///< goes on when at the end of the text
    lastLineEnd,  ///< goes on when at the end of the text or before a line end that ends it
    match,        ///< the expression has matched
  };

  struct Instruction {
    Operation operation;
    std::uint32_t next;
    std::uint32_t operand;
  };

  /// Throws std::invalid_argument when the expression needs more than `maximumSize` instructions.
  explicit RegexProgram(const RegexNode& expression);

  static constexpr std::uint32_t maximumSize = 10'000;

  /// False for most texts that cannot match, after a look at the first byte: what makes it affordable to try
  /// every tail of a stream.
  bool mayMatch(std::string_view text) const {
    return text.empty() || firstBytes_[static_cast<unsigned char>(text.front())];
  }

  const std::vector<Instruction>& instructions() const { return instructions_; }
  const CharacterSet& set(std::uint32_t index) const { return sets_[index]; }
  const CharacterSet& lineEnds() const { return lineEnds_; }

 private:
  void emit(const RegexNode& node);
  void emitChoice(const RegexNode& node);
  void emitRepetition(const RegexNode& node);
  /// Appends an instruction that goes on at the one behind it, and hands back its index.
  std::uint32_t append(Operation operation, std::uint32_t operand = 0);
  void collectFirstBytes();
  void addFirstBytesOf(const CharacterSet& set);
  std::uint32_t size() const { return static_cast<std::uint32_t>(instructions_.size()); }

  std::vector<Instruction> instructions_;
  std::vector<CharacterSet> sets_;
  CharacterSet lineEnds_ = CharacterSet::lineEnds();
  std::bitset<256> firstBytes_;
};

}  // namespace tarsil::detail
