#include "tarsil/platform/linux/naturalOrder.hpp"

#include <algorithm>

namespace tarsil {
namespace {

constexpr std::string_view digits = "0123456789";

// Takes the digits that `text` begins with, without zeros in front.
std::string_view takeNumber(std::string_view& text) {
  std::string_view number = text.substr(0, text.find_first_not_of(digits));
  text.remove_prefix(number.size());
  number.remove_prefix(std::min(number.find_first_not_of('0'), number.size()));
  return number;
}

bool beginsWithDigit(std::string_view text) {
  return !text.empty() && digits.find(text.front()) != std::string_view::npos;
}

}  // namespace

bool comesBefore(std::string_view left, std::string_view right) {
  const std::string_view wholeLeft = left;
  const std::string_view wholeRight = right;
  while (!left.empty() && !right.empty()) {
    if (beginsWithDigit(left) && beginsWithDigit(right)) {
      const std::string_view leftNumber = takeNumber(left);
      const std::string_view rightNumber = takeNumber(right);
      // As text, so that no number is too large.
      if (leftNumber.size() != rightNumber.size()) return leftNumber.size() < rightNumber.size();
      if (leftNumber != rightNumber) return leftNumber < rightNumber;
      continue;
    }
    if (left.front() != right.front()) return left.front() < right.front();
    left.remove_prefix(1);
    right.remove_prefix(1);
  }
  if (left.empty() != right.empty()) return left.empty();
  // Equal but for zeros in front.
  return wholeLeft < wholeRight;
}

}  // namespace tarsil
