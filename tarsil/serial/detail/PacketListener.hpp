#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"
#include "tarsil/serial/detail/PacketMatcher.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil::detail {

/// The packets that a port listens for, in the order in which listening began. Used on the port's own queue
/// only, but for `descriptors()`.
class PacketListener {
 public:
  using Descriptor = std::shared_ptr<ORSSerialPacketDescriptor>;
  using Report = std::function<void(Bytes packet, const Descriptor& matchingDescriptor)>;

  /// `report` is called for every packet.
  explicit PacketListener(Report report);

  /// False when the descriptor is listened for already; it then keeps the bytes that it has.
  bool start(const Descriptor& descriptor);
  void stop(const ORSSerialPacketDescriptor& descriptor);

  void append(std::uint8_t byte);

  /// Any thread.
  std::vector<Descriptor> descriptors() const;

 private:
  struct Listened {
    Descriptor descriptor;
    std::unique_ptr<PacketMatcher> matcher;
  };

  Report report_;
  std::vector<Listened> listened_;
  // What other threads see of `listened_`.
  mutable std::mutex mutex_;
  std::vector<Descriptor> descriptors_;
};

}  // namespace tarsil::detail
