#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_set>
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

  /// Begins a chunk of received bytes.
  void begin(ByteView chunk);
  /// Where the next byte of the chunk stands that matters; at its end or beyond when there is none.
  std::size_t next() const;
  /// Takes the byte at `at`, from a chunk that was begun, or passes it over where it does not matter.
  void append(ByteView chunk, std::size_t at);

  /// Any thread.
  bool isEmpty() const;
  std::vector<Descriptor> descriptors() const;

 private:
  struct Listened {
    Descriptor descriptor;
    std::unique_ptr<PacketMatcher> matcher;
    /// Where in the chunk the next byte stands that the matcher has to see.
    std::size_t next = 0;
  };

  Report report_;
  std::vector<Listened> listened_;
  // A descriptor is never copied, so its address tells it apart: a session may have thousands.
  std::unordered_set<const ORSSerialPacketDescriptor*> known_;
  // What other threads see of `listened_`.
  mutable std::mutex mutex_;
  std::vector<Descriptor> descriptors_;
};

}  // namespace tarsil::detail
