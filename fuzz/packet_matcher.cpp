#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "fuzz/expect.hpp"
#include "tarsil/serial/ORSSerialBuffer.hpp"
#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"
#include "tarsil/serial/detail/PacketMatcher.hpp"

using namespace tarsil;

namespace {

using Descriptor = std::shared_ptr<ORSSerialPacketDescriptor>;

/// Takes the input apart from its front.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

  std::uint8_t byte() {
    const Bytes one = bytes(1);
    return one.empty() ? std::uint8_t{0} : one.front();
  }
  Bytes bytes(std::size_t count) {
    const ByteView taken = rest_.first(std::min(count, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return {taken.begin(), taken.end()};
  }
  ByteView rest() const { return rest_; }

 private:
  ByteView rest_;
};

Descriptor descriptorFrom(Input& input) {
  const std::uint8_t kind = input.byte();
  const std::uint64_t maximum = input.byte() % 32;
  Bytes first = input.bytes(input.byte() % 8);
  Bytes second = input.bytes(input.byte() % 8);
  if (kind % 8 == 0) {
    return std::make_shared<ORSSerialPacketDescriptor>(
        ORSSerialPacketDescriptor::FixedPacket{.packetData = std::move(first)});
  }
  if (kind % 8 == 1) {
    return std::make_shared<ORSSerialPacketDescriptor>(ORSSerialPacketDescriptor::Expression{
        .regularExpression = RegularExpression("[a-c]+\\d?[^x]"), .maximumPacketLength = maximum});
  }
  ORSSerialPacketDescriptor::PrefixAndSuffix shape{.maximumPacketLength = maximum};
  const bool isBare = kind % 8 == 4;
  if (kind % 8 != 2 && !isBare) shape.prefix = std::move(first);
  if (kind % 8 != 3 && !isBare) shape.suffix = std::move(second);
  return std::make_shared<ORSSerialPacketDescriptor>(std::move(shape));
}

// The definition, word for word.
std::optional<Bytes> shortestAcceptedTail(const ORSSerialPacketDescriptor& descriptor, ByteView buffer) {
  for (std::size_t n = 1; n <= buffer.size(); ++n) {
    const ByteView tail = buffer.last(n);
    if (descriptor.dataIsValidPacket(tail)) return Bytes(tail.begin(), tail.end());
  }
  return std::nullopt;
}

}  // namespace

// A descriptor and a stream: the matcher finds what the definition finds.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const Descriptor descriptor = descriptorFrom(input);
  const auto matcher = detail::PacketMatcher::make(descriptor);
  const auto sparing = detail::PacketMatcher::make(descriptor);
  const auto passing = detail::PacketMatcher::make(descriptor);
  ORSSerialBuffer buffer(descriptor->maximumPacketLength());
  std::size_t next = 0;
  std::size_t at = 0;
  for (const std::uint8_t byte : input.rest()) {
    buffer.appendData({&byte, 1});
    const auto expected = shortestAcceptedTail(*descriptor, buffer.view());
    expect(descriptor->packetMatchingAtEndOfBuffer(buffer.view()) == expected);
    expect(matcher->append(byte) == expected);
    const bool isUseless = sparing->useless({&byte, 1}) == 1;
    expect((isUseless ? std::nullopt : sparing->append(byte)) == expected);
    // Passes over what it can of the chunk, which goes on to the end of the input.
    if (at == next) next += passing->pass(input.rest().subspan(at));
    expect((at < next ? std::nullopt : passing->append(byte)) == expected);
    next = std::max(next, ++at);
    if (expected) buffer.clearBuffer();
  }
  return 0;
}
