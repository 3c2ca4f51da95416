#include "tarsil/serial/detail/EveryTailMatcher.hpp"

#include <utility>

#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"

namespace tarsil::detail {

EveryTailMatcher::EveryTailMatcher(std::shared_ptr<const ORSSerialPacketDescriptor> descriptor,
                                   std::uint64_t maximumLength)
    : descriptor_(std::move(descriptor)), buffer_(maximumLength) {}

std::optional<Bytes> EveryTailMatcher::append(std::uint8_t byte) {
  buffer_.appendData({&byte, 1});
  auto packet = descriptor_->packetMatchingAtEndOfBuffer(buffer_.view());
  if (packet) buffer_.clearBuffer();
  return packet;
}

}  // namespace tarsil::detail
