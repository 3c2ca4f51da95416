#include "tarsil/serial/detail/SlidingBytes.hpp"

#include <algorithm>

namespace tarsil::detail {

void SlidingBytes::append(ByteView bytes) {
  if (bytes.size() > maximumLength_) bytes = bytes.last(static_cast<std::size_t>(maximumLength_));
  stored_.insert(stored_.end(), bytes.begin(), bytes.end());
  if (size() > maximumLength_) dropFront(size() - static_cast<std::size_t>(maximumLength_));
}

void SlidingBytes::dropFront(std::size_t count) {
  first_ += std::min(count, size());
  if (first_ <= stored_.size() / 2) return;
  stored_.erase(stored_.begin(), stored_.begin() + static_cast<std::ptrdiff_t>(first_));
  first_ = 0;
}

void SlidingBytes::clear() {
  stored_.clear();
  first_ = 0;
}

}  // namespace tarsil::detail
