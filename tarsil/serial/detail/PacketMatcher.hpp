#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "tarsil/support/bytes.hpp"

namespace tarsil {
class ORSSerialPacketDescriptor;
}

namespace tarsil::detail {

/// Looks for one descriptor's packets in a stream of bytes, and keeps of the stream what that takes. It finds
/// what asking the descriptor after every byte about a buffer of its maximum length would find.
class PacketMatcher {
 public:
  virtual ~PacketMatcher() = default;

  /// The packet that this byte completes, if any. After a packet the stream begins anew.
  virtual std::optional<Bytes> append(std::uint8_t byte) = 0;

  /// The quickest one for the descriptor.
  static std::unique_ptr<PacketMatcher> make(
      const std::shared_ptr<const ORSSerialPacketDescriptor>& descriptor);
};

}  // namespace tarsil::detail
