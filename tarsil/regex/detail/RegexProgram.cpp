#include "tarsil/regex/detail/RegexProgram.hpp"

#include <stdexcept>

namespace tarsil::detail {

RegexProgram::RegexProgram(const RegexNode& expression) {
  emit(expression);
  append(Operation::match);
  collectFirstBytes();
}

void RegexProgram::emit(const RegexNode& node) {
  switch (node.kind) {
    case RegexNode::Kind::characters:
      append(Operation::characters, static_cast<std::uint32_t>(sets_.size()));
      sets_.push_back(node.set);
      return;
    case RegexNode::Kind::startOfText:
      append(Operation::startOfText);
      return;
    case RegexNode::Kind::endOfText:
      append(Operation::endOfText);
      return;
    case RegexNode::Kind::lastLineEnd:
      append(Operation::lastLineEnd);
      return;
    case RegexNode::Kind::sequence:
      for (const RegexNode& child : node.children) emit(child);
      return;
    case RegexNode::Kind::choice:
      return emitChoice(node);
    case RegexNode::Kind::repetition:
      return emitRepetition(node);
  }
}

void RegexProgram::emitChoice(const RegexNode& node) {
  std::vector<std::uint32_t> exits;
  for (std::size_t i = 0; i + 1 < node.children.size(); ++i) {
    const std::uint32_t fork = append(Operation::fork);
    emit(node.children[i]);
    exits.push_back(append(Operation::fork));
    instructions_[fork].operand = size();
  }
  emit(node.children.back());
  for (const std::uint32_t exit : exits) instructions_[exit].next = instructions_[exit].operand = size();
}

void RegexProgram::emitRepetition(const RegexNode& node) {
  const RegexNode& child = node.children.front();
  for (unsigned i = 0; i < node.minimum; ++i) {
    const std::uint32_t before = size();
    emit(child);
    // What needs no instruction needs none however often it is repeated.
    if (size() == before) return;
  }
  if (!node.maximum) {
    const std::uint32_t loop = append(Operation::fork);
    emit(child);
    const std::uint32_t back = append(Operation::fork);
    instructions_[back].next = instructions_[back].operand = loop;
    instructions_[loop].operand = size();
    return;
  }
  std::vector<std::uint32_t> exits;
  for (unsigned i = node.minimum; i < *node.maximum; ++i) {
    exits.push_back(append(Operation::fork));
    emit(child);
  }
  for (const std::uint32_t exit : exits) instructions_[exit].operand = size();
}

void RegexProgram::collectFirstBytes() {
  std::vector<bool> isReached(instructions_.size(), false);
  std::vector<std::uint32_t> toFollow{0};
  while (!toFollow.empty()) {
    const std::uint32_t index = toFollow.back();
    toFollow.pop_back();
    if (isReached[index]) continue;
    isReached[index] = true;

    const Instruction& instruction = instructions_[index];
    switch (instruction.operation) {
      case Operation::characters:
        addFirstBytesOf(sets_[instruction.operand]);
        break;
      case Operation::fork:
        toFollow.push_back(instruction.operand);
        [[fallthrough]];
      case Operation::startOfText:
        toFollow.push_back(instruction.next);
        break;
      // An empty match may stand before any byte.
      case Operation::endOfText:
      case Operation::lastLineEnd:
      case Operation::match:
        firstBytes_.set();
        return;
    }
  }
}

void RegexProgram::addFirstBytesOf(const CharacterSet& set) {
  for (char32_t character = 0; character < 0x80; ++character) {
    if (set.contains(character)) firstBytes_.set(character);
  }
  // The longer characters are not told apart.
  for (std::size_t lead = 0xC2; lead <= 0xF4; ++lead) firstBytes_.set(lead);
}

std::uint32_t RegexProgram::append(Operation operation, std::uint32_t operand) {
  if (size() == maximumSize)
    throw std::invalid_argument("regular expression: its repetitions make it too large");
  instructions_.push_back({operation, size() + 1, operand});
  return size() - 1;
}

}  // namespace tarsil::detail
