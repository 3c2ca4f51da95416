#include "tarsil/serial/detail/PacketMatcher.hpp"

#include <algorithm>
#include <utility>

#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"
#include "tarsil/serial/detail/EveryTailMatcher.hpp"
#include "tarsil/serial/detail/PrefixSuffixMatcher.hpp"
#include "tarsil/serial/detail/SequenceMatcher.hpp"

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

}  // namespace tarsil::detail
