#include "tarsil/serial/detail/PacketMatcher.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"

namespace tarsil::detail {
namespace {

using Descriptor = std::shared_ptr<const ORSSerialPacketDescriptor>;
using Kind = ORSSerialPacketDescriptor::Kind;

std::unique_ptr<PacketMatcher> makeNever(const Descriptor& descriptor) {
  return std::make_unique<EveryTailMatcher>(descriptor, 0);
}

std::unique_ptr<PacketMatcher> makeFixed(const Descriptor& descriptor) {
  if (descriptor->packetData()->empty()) return makeNever(descriptor);
  return std::make_unique<SequenceMatcher>(*descriptor->packetData());
}

std::unique_ptr<PacketMatcher> makeBetween(const Descriptor& descriptor) {
  if (!descriptor->prefix() && !descriptor->suffix()) return makeNever(descriptor);

  Bytes prefix = descriptor->prefix().value_or(Bytes{});
  Bytes suffix = descriptor->suffix().value_or(Bytes{});
  const std::uint64_t maximum = descriptor->maximumPacketLength();
  if (std::max(prefix.size(), suffix.size()) > maximum) return makeNever(descriptor);
  // The first tail is a packet already.
  if (prefix.empty() && suffix.empty()) return std::make_unique<EveryTailMatcher>(descriptor, maximum);
  // One of them alone is the shortest packet as soon as it is complete.
  if (prefix.empty()) return std::make_unique<SequenceMatcher>(std::move(suffix));
  if (suffix.empty()) return std::make_unique<SequenceMatcher>(std::move(prefix));
  return std::make_unique<PrefixSuffixMatcher>(std::move(prefix), std::move(suffix), maximum);
}

}  // namespace

std::unique_ptr<PacketMatcher> PacketMatcher::make(const Descriptor& descriptor) {
  switch (descriptor->kind()) {
    case Kind::fixedPacket:
      return makeFixed(descriptor);
    case Kind::prefixAndSuffix:
      return makeBetween(descriptor);
    case Kind::evaluated:
    case Kind::expression:
      break;
  }
  return std::make_unique<EveryTailMatcher>(descriptor, descriptor->maximumPacketLength());
}

// Finding a sequence

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

// Byte by byte only through what may be the beginning of an occurrence; memmem() finds the next one quicker.
std::size_t SequenceFinder::pass(ByteView bytes) {
  std::size_t at = 0;
  for (; at < bytes.size() && matched_ > 0; ++at) {
    if (isCompletedBy(bytes[at])) return at;
    feed(bytes[at]);
  }
  at += useless(bytes.subspan(at));
  if (at == bytes.size()) return at;

  const ByteView rest = bytes.subspan(at);
  const std::size_t allButLast = sequence_.size() - 1;
  if (const void* found = memmem(rest.data(), rest.size(), sequence_.data(), sequence_.size())) {
    matched_ = allButLast;
    const auto before = static_cast<std::size_t>(static_cast<const std::uint8_t*>(found) - bytes.data());
    return before + allButLast;
  }
  for (const std::uint8_t byte : rest.last(std::min(allButLast, rest.size()))) feed(byte);
  return bytes.size();
}

bool SequenceFinder::isCompletedBy(std::uint8_t byte) const {
  const std::size_t matched = matched_ == sequence_.size() ? fallback_[matched_] : matched_;
  return matched + 1 == sequence_.size() && byte == sequence_.back();
}

std::size_t SequenceFinder::useless(ByteView bytes) const {
  if (matched_ > 0 || bytes.empty()) return 0;
  const void* beginning = std::memchr(bytes.data(), sequence_.front(), bytes.size());
  if (beginning == nullptr) return bytes.size();
  return static_cast<std::size_t>(static_cast<const std::uint8_t*>(beginning) - bytes.data());
}

// Exactly one sequence

SequenceMatcher::SequenceMatcher(Bytes sequence) : finder_(std::move(sequence)) {}

std::optional<Bytes> SequenceMatcher::append(std::uint8_t byte) {
  if (!finder_.feed(byte)) return std::nullopt;
  finder_.reset();
  return finder_.sequence();
}

std::size_t SequenceMatcher::useless(ByteView bytes) const {
  return finder_.useless(bytes);
}

// Between two sequences

PrefixSuffixMatcher::PrefixSuffixMatcher(Bytes prefix, Bytes suffix, std::uint64_t maximumLength)
    : prefix_(std::move(prefix)),
      suffix_(std::move(suffix)),
      maximumLength_(maximumLength),
      bytes_(maximumLength) {}

std::optional<Bytes> PrefixSuffixMatcher::append(std::uint8_t byte) {
  const bool endsWithPrefix = prefix_.feed(byte);
  if (starts_.empty() && prefix_.matched() == 0) {
    // No packet has begun, so that its suffix has not either.
    reset();
    return std::nullopt;
  }
  bytes_.append({&byte, 1});
  ++end_;
  if (endsWithPrefix) starts_.push_back(end_ - prefix_.sequence().size());
  const bool endsWithSuffix = suffix_.feed(byte);
  forgetUselessStarts();
  dropUselessBytes();
  if (!endsWithSuffix || starts_.empty() || !leavesRoomForSuffix(starts_.front())) return std::nullopt;

  const ByteView packet = bytes_.view();
  Bytes result(packet.begin(), packet.end());
  reset();
  return result;
}

std::size_t PrefixSuffixMatcher::useless(ByteView bytes) const {
  return starts_.empty() ? prefix_.useless(bytes) : 0;
}

std::size_t PrefixSuffixMatcher::pass(ByteView bytes) {
  if (starts_.empty()) return useless(bytes);
  const std::size_t passed = suffix_.pass(bytes);
  passWithinPacket(bytes.first(passed));
  return passed;
}

void PrefixSuffixMatcher::passWithinPacket(ByteView bytes) {
  bytes_.append(bytes);
  for (std::size_t at = prefix_.pass(bytes); at < bytes.size(); at += prefix_.pass(bytes.subspan(at))) {
    prefix_.feed(bytes[at]);
    ++at;
    starts_.push_back(end_ + at - prefix_.sequence().size());
  }
  end_ += bytes.size();
  forgetUselessStarts();
  dropUselessBytes();
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

// Any tail

EveryTailMatcher::EveryTailMatcher(std::shared_ptr<const ORSSerialPacketDescriptor> descriptor,
                                   std::uint64_t maximumLength)
    : descriptor_(std::move(descriptor)), buffer_(maximumLength) {}

std::optional<Bytes> EveryTailMatcher::append(std::uint8_t byte) {
  buffer_.appendData({&byte, 1});
  auto packet = descriptor_->packetMatchingAtEndOfBuffer(buffer_.view());
  if (packet) buffer_.clearBuffer();
  return packet;
}

std::size_t EveryTailMatcher::useless(ByteView bytes) const {
  return buffer_.maximumLength() == 0 ? bytes.size() : 0;
}

}  // namespace tarsil::detail
