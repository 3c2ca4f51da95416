#include "tarsil/serial/detail/PrefixSuffixMatcher.hpp"

#include <utility>

namespace tarsil::detail {

PrefixSuffixMatcher::PrefixSuffixMatcher(Bytes prefix, Bytes suffix, std::uint64_t maximumLength)
    : prefix_(std::move(prefix)),
      suffix_(std::move(suffix)),
      maximumLength_(maximumLength),
      bytes_(maximumLength) {}

std::optional<Bytes> PrefixSuffixMatcher::append(std::uint8_t byte) {
  bytes_.append({&byte, 1});
  ++end_;
  if (prefix_.feed(byte)) starts_.push_back(end_ - prefix_.sequence().size());
  const bool endsWithSuffix = suffix_.feed(byte);
  forgetUselessStarts();
  dropUselessBytes();
  if (!endsWithSuffix || starts_.empty() || !leavesRoomForSuffix(starts_.front())) return std::nullopt;

  const ByteView packet = bytes_.view();
  Bytes result(packet.begin(), packet.end());
  reset();
  return result;
}

bool PrefixSuffixMatcher::leavesRoomForSuffix(std::uint64_t start) const {
  return end_ - start >= suffix_.sequence().size();
}

void PrefixSuffixMatcher::forgetUselessStarts() {
  const auto isUseless = [this] {
    const bool fellOut = end_ - starts_.front() > maximumLength_;
    const bool isReplaced = starts_.size() > 1 && leavesRoomForSuffix(starts_[1]);
    return fellOut || isReplaced;
  };
  while (!starts_.empty() && isUseless()) starts_.pop_front();
}

void PrefixSuffixMatcher::dropUselessBytes() {
  const std::uint64_t useful = starts_.empty() ? prefix_.matched() : end_ - starts_.front();
  if (bytes_.size() > useful) bytes_.dropFront(bytes_.size() - static_cast<std::size_t>(useful));
}

void PrefixSuffixMatcher::reset() {
  prefix_.reset();
  suffix_.reset();
  end_ = 0;
  starts_.clear();
  bytes_.clear();
}

}  // namespace tarsil::detail
