#include "tarsil/regex/detail/RegexRun.hpp"

#include <utility>

#include "tarsil/support/utf8.hpp"

namespace tarsil::detail {

using Operation = RegexProgram::Operation;

RegexRun::RegexRun(const RegexProgram& program, std::string_view text)
    : program_(program), text_(text), reachedIn_(program.instructions().size(), 0) {}

bool RegexRun::matches(Extent extent) {
  follow(0);
  for (;;) {
    const std::string_view rest = text_.substr(position_);
    if (matched_ && extent == Extent::prefix) return utf8::isValid(rest);
    if (rest.empty()) return matched_;
    if (waiting_.empty()) return false;
    const auto character = utf8::firstScalar(rest);
    if (!character) return false;
    position_ += utf8::firstCharacter(rest).size();
    step(*character);
  }
}

void RegexRun::step(char32_t character) {
  ++round_;
  matched_ = false;
  std::swap(waiting_, previous_);
  waiting_.clear();
  for (const Index index : previous_) {
    const auto& instruction = program_.instructions()[index];
    if (program_.set(instruction.operand).contains(character)) follow(instruction.next);
  }
}

void RegexRun::follow(Index start) {
  toFollow_.push_back(start);
  while (!toFollow_.empty()) {
    const Index index = toFollow_.back();
    toFollow_.pop_back();
    if (std::exchange(reachedIn_[index], round_) == round_) continue;

    const auto& instruction = program_.instructions()[index];
    switch (instruction.operation) {
      case Operation::characters:
        waiting_.push_back(index);
        break;
      case Operation::match:
        matched_ = true;
        break;
      case Operation::fork:
        toFollow_.push_back(instruction.operand);
        toFollow_.push_back(instruction.next);
        break;
      case Operation::startOfText:
      case Operation::endOfText:
      case Operation::lastLineEnd:
        if (isPassable(instruction.operation)) toFollow_.push_back(instruction.next);
        break;
    }
  }
}

bool RegexRun::isPassable(Operation assertion) const {
  if (assertion == Operation::startOfText) return position_ == 0;
  if (position_ == text_.size()) return true;
  return assertion == Operation::lastLineEnd && isAtLastLineEnd();
}

bool RegexRun::isAtLastLineEnd() const {
  const std::string_view rest = text_.substr(position_);
  if (rest == "\r\n") return true;
  // The second half of a line end of two characters is no place before a line end.
  if (rest == "\n") return position_ == 0 || text_[position_ - 1] != '\r';
  const auto character = utf8::firstScalar(rest);
  return character && program_.lineEnds().contains(*character) &&
         utf8::firstCharacter(rest).size() == rest.size();
}

}  // namespace tarsil::detail
