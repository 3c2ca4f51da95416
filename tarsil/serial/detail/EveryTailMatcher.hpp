#pragma once

#include <cstdint>
#include <memory>

#include "tarsil/serial/ORSSerialBuffer.hpp"
#include "tarsil/serial/detail/PacketMatcher.hpp"

namespace tarsil::detail {

/// Finds packets by asking the descriptor after every byte. For evaluators and regular expressions, whose
/// verdicts on one tail say nothing about the next.
class EveryTailMatcher final : public PacketMatcher {
 public:
  EveryTailMatcher(std::shared_ptr<const ORSSerialPacketDescriptor> descriptor, std::uint64_t maximumLength);

  std::optional<Bytes> append(std::uint8_t byte) override;

 private:
  std::shared_ptr<const ORSSerialPacketDescriptor> descriptor_;
  ORSSerialBuffer buffer_;
};

}  // namespace tarsil::detail
