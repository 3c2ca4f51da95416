#include "tarsil/serial/detail/SequenceFinder.hpp"

#include <utility>

namespace tarsil::detail {

SequenceFinder::SequenceFinder(Bytes sequence)
    : sequence_(std::move(sequence)), fallback_(sequence_.size() + 1, 0) {
  std::size_t length = 0;
  for (std::size_t i = 1; i < sequence_.size(); ++i) {
    while (length > 0 && sequence_[i] != sequence_[length]) length = fallback_[length];
    if (sequence_[i] == sequence_[length]) ++length;
    fallback_[i + 1] = length;
  }
}

bool SequenceFinder::feed(std::uint8_t byte) {
  if (matched_ == sequence_.size()) matched_ = fallback_[matched_];
  while (matched_ > 0 && sequence_[matched_] != byte) matched_ = fallback_[matched_];
  if (sequence_[matched_] == byte) ++matched_;
  return matched_ == sequence_.size();
}

}  // namespace tarsil::detail
