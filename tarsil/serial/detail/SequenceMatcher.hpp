#pragma once

#include "tarsil/serial/detail/PacketMatcher.hpp"
#include "tarsil/serial/detail/SequenceFinder.hpp"

namespace tarsil::detail {

/// Finds packets that are exactly one sequence of bytes. Constant time per byte on average; keeps no bytes.
class SequenceMatcher final : public PacketMatcher {
 public:
  /// The sequence must not be empty.
  explicit SequenceMatcher(Bytes sequence);

  std::optional<Bytes> append(std::uint8_t byte) override;

 private:
  SequenceFinder finder_;
};

}  // namespace tarsil::detail
