#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace tarsil {
namespace {

std::optional<Bytes> utf8Bytes(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  return Bytes(text->begin(), text->end());
}

Bytes tail(ByteView bytes, std::size_t count) {
  const ByteView last = bytes.last(count);
  return {last.begin(), last.end()};
}

bool beginsWith(ByteView bytes, ByteView prefix) {
  return bytes.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), bytes.begin());
}

bool endsWith(ByteView bytes, ByteView suffix) {
  return bytes.size() >= suffix.size() && std::equal(suffix.rbegin(), suffix.rend(), bytes.rbegin());
}

bool isAnything(ByteView bytes) {
  return !bytes.empty();
}

auto isExactly(Bytes packet) {
  return [packet = std::move(packet)](ByteView bytes) { return std::ranges::equal(bytes, packet); };
}

auto isBetween(const std::optional<Bytes>& prefix, const std::optional<Bytes>& suffix) {
  // Only absence of both rejects everything; two empty ones accept everything.
  return [neither = !prefix && !suffix, prefix = prefix.value_or(Bytes{}), suffix = suffix.value_or(Bytes{})](
             ByteView bytes) { return !neither && beginsWith(bytes, prefix) && endsWith(bytes, suffix); };
}

auto isMatchOf(RegularExpression expression) {
  return [expression = std::move(expression)](ByteView bytes) {
    return expression.matchesPrefix({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  };
}

std::optional<Bytes> fixedPacketAtEnd(ByteView buffer, const Bytes& packet) {
  if (packet.empty() || !endsWith(buffer, packet)) return std::nullopt;
  return packet;
}

// The shortest packet begins at the last prefix from which prefix and suffix, each for itself, fit before the
// end.
std::optional<Bytes> packetBetweenAtEnd(ByteView buffer, const Bytes& prefix, const Bytes& suffix) {
  const std::size_t shortest = std::max({std::size_t{1}, prefix.size(), suffix.size()});
  if (buffer.size() < shortest || !endsWith(buffer, suffix)) return std::nullopt;
  if (prefix.empty()) return tail(buffer, shortest);

  const ByteView searched = buffer.first(buffer.size() - shortest + prefix.size());
  const auto start = std::find_end(searched.begin(), searched.end(), prefix.begin(), prefix.end());
  if (start == searched.end()) return std::nullopt;
  return Bytes(start, searched.end() + static_cast<std::ptrdiff_t>(shortest - prefix.size()));
}

std::optional<Bytes> acceptedTail(ByteView buffer, const ORSSerialPacketDescriptor& descriptor) {
  for (std::size_t n = 1; n <= buffer.size(); ++n) {
    if (descriptor.dataIsValidPacket(buffer.last(n))) return tail(buffer, n);
  }
  return std::nullopt;
}

}  // namespace

ORSSerialPacketDescriptor::ORSSerialPacketDescriptor() {
  throw std::logic_error(
      "You must initialize ORSSerialPacketDescriptor with its designated initializers, "
      "or one of its convenience initializers.");
}

ORSSerialPacketDescriptor::ORSSerialPacketDescriptor(Evaluated shape)
    : kind_(Kind::evaluated),
      maximumPacketLength_(shape.maximumPacketLength),
      userInfo_(std::move(shape.userInfo)),
      responseEvaluator_(shape.responseEvaluator ? std::move(shape.responseEvaluator) : isAnything) {}

ORSSerialPacketDescriptor::ORSSerialPacketDescriptor(FixedPacket shape)
    : kind_(Kind::fixedPacket),
      packetData_(std::move(shape.packetData)),
      maximumPacketLength_(packetData_->size()),
      userInfo_(std::move(shape.userInfo)),
      responseEvaluator_(isExactly(*packetData_)) {}

ORSSerialPacketDescriptor::ORSSerialPacketDescriptor(PrefixAndSuffix shape)
    : kind_(Kind::prefixAndSuffix),
      prefix_(std::move(shape.prefix)),
      suffix_(std::move(shape.suffix)),
      maximumPacketLength_(shape.maximumPacketLength),
      userInfo_(std::move(shape.userInfo)),
      responseEvaluator_(isBetween(prefix_, suffix_)) {}

ORSSerialPacketDescriptor::ORSSerialPacketDescriptor(PrefixAndSuffixStrings shape)
    : ORSSerialPacketDescriptor(PrefixAndSuffix{.prefix = utf8Bytes(shape.prefixString),
                                                .suffix = utf8Bytes(shape.suffixString),
                                                .maximumPacketLength = shape.maximumPacketLength,
                                                .userInfo = std::move(shape.userInfo)}) {}

ORSSerialPacketDescriptor::ORSSerialPacketDescriptor(Expression shape)
    : kind_(Kind::expression),
      regularExpression_(std::move(shape.regularExpression)),
      maximumPacketLength_(shape.maximumPacketLength),
      userInfo_(std::move(shape.userInfo)),
      responseEvaluator_(isMatchOf(*regularExpression_)) {}

std::optional<Bytes> ORSSerialPacketDescriptor::packetMatchingAtEndOfBuffer(ByteView buffer) const {
  if (kind_ == Kind::fixedPacket) return fixedPacketAtEnd(buffer, *packetData_);
  if (kind_ != Kind::prefixAndSuffix) return acceptedTail(buffer, *this);
  if (!prefix_ && !suffix_) return std::nullopt;
  return packetBetweenAtEnd(buffer, prefix_.value_or(Bytes{}), suffix_.value_or(Bytes{}));
}

}  // namespace tarsil
