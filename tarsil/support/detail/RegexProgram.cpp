#include "tarsil/support/detail/RegexProgram.hpp"

#include <stdexcept>

namespace tarsil::detail {

RegexProgram::RegexProgram(const RegexNode& expression) {
  emit(expression);
  append(Operation::match);
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

std::uint32_t RegexProgram::append(Operation operation, std::uint32_t operand) {
  if (size() == maximumSize)
    throw std::invalid_argument("regular expression: its repetitions make it too large");
  instructions_.push_back({operation, size() + 1, operand});
  return size() - 1;
}

}  // namespace tarsil::detail
