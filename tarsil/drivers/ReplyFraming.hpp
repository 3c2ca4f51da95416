#pragma once

#include <cstdint>
#include <vector>

#include "tarsil/support/bytes.hpp"

namespace tarsil {

class KivStressDevice;
class ORSSerialPort;

/// Cuts what a line delivers into the whole replies of one model, wherever the adapter cut or joined them,
/// and hands each to a driver in the pieces that this driver can decode. A lost, added or changed byte costs
/// the reply that it is in: the next intact one is found. Bytes that belong to no reply, and replies with a
/// wrong check, never reach a driver. Main thread.
class ReplyFraming {
 public:
  enum class Kind {
    /// Its driver reports a load, power or pedal rate.
    load,
    acknowledgement,
    /// Its driver reports an error.
    refusal,
    /// The device is ready, or has initialised itself.
    readiness,
    pressure,
    saturation,
    /// Whole, but nothing that its driver reports.
    other,
  };

  struct Reply {
    /// As they stood on the line; of a value that comes in two replies, both.
    Bytes bytes;
    Kind kind = Kind::other;
  };

  virtual ~ReplyFraming() = default;

  /// The replies that these bytes complete, in their order. The rest is kept, bounded, for the next call.
  virtual std::vector<Reply> take(ByteView received) = 0;
  /// The line is a new one: forgets the rest.
  virtual void reset() = 0;

  /// Lets the driver decode one reply that `take` gave: its delegate then hears exactly what this reply says.
  /// Where the model's facts say that a driver keeps its first reply for ever, the driver has to be a new
  /// one.
  virtual void deliver(const Reply& reply, KivStressDevice& driver, ORSSerialPort& port) const = 0;

  /// Bytes so far that belong to no whole reply.
  std::uint64_t discardedBytes() const { return discardedBytes_; }
  /// Replies so far whose check was wrong.
  std::uint64_t failedChecks() const { return failedChecks_; }

 protected:
  void discard(std::uint64_t bytes) { discardedBytes_ += bytes; }
  void countFailedCheck() { ++failedChecks_; }

 private:
  std::uint64_t discardedBytes_ = 0;
  std::uint64_t failedChecks_ = 0;
};

}  // namespace tarsil
