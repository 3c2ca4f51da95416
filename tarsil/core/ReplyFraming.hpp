#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "tarsil/support/bytes.hpp"

namespace tarsil {

class KivStressDevice;
class ORSSerialPort;

/// Cuts what a line delivers into a model's whole replies, whatever an adapter did to them on their way: cut
/// in pieces, joined, between bytes that belong to nothing. Each model has its own, from the catalogue.
///
/// A lost, added or changed byte costs the reply that it hits and no other: a reply is found by its last
/// byte, whatever stands before its first one. Memory is bounded, and so is the cost of a byte. Bytes that
/// belong to no reply are counted and never handed out.
///
///     for (const auto& reply : framing->take(received)) framing->decode(reply, *decoder, *port);
///
/// One thread at a time; `decode` on the main thread.
class ReplyFraming {
 public:
  enum class Kind : std::uint8_t {
    /// Speed or grade of a treadmill, or power of an ergometer.
    load,
    pedalRate,
    /// A command was accepted.
    acknowledgement,
    /// A command was refused.
    refusal,
    /// A command was refused because somebody stopped the machine at the machine, as far as its protocol can
    /// tell: also where it has only one code for everything.
    stoppedAtMachine,
    readiness,
    /// A blood pressure, or one half of it.
    pressure,
    saturation,
    /// Whole and sound, but the driver cannot decode it; some drivers would be lost with it.
    other,
  };

  struct Reply {
    /// As they stood on the line.
    Bytes bytes;
    Kind kind;

    bool operator==(const Reply&) const = default;
  };

  virtual ~ReplyFraming() = default;
  ReplyFraming(const ReplyFraming&) = delete;
  ReplyFraming& operator=(const ReplyFraming&) = delete;

  /// The replies that these bytes complete, in order. An incomplete rest is kept for the next call.
  std::vector<Reply> take(ByteView received);
  /// A new line: forgets the incomplete rest, which belongs to no reply.
  void reset();

  /// Bytes that belong to no reply, so far.
  std::uint64_t discardedBytes() const { return discardedBytes_; }
  /// Replies with a wrong check, or with something else where their digits belong, so far. Bytes that only
  /// look like one count as well.
  std::uint64_t failedChecks() const { return failedChecks_; }

  /// Hands a reply that `take` gave to a driver of this model, in the pieces that it can read, so that its
  /// host hears what the reply says: once, and nothing of an earlier one. What the driver would report again
  /// and again is forgotten first; a load that comes in two replies is reported with the second, and so are
  /// two halves of a pressure. Nothing happens for `other`.
  ///
  /// `decoder` is made for this and hears nothing else; the driver that sends the commands is another one.
  /// The first half of a pressure waits in it for the second: a new decoder for each measurement keeps those
  /// of two measurements apart. An Ergoline's or Ergosana's host is, in part, the shared manager's delegate,
  /// as its driver says. A driver of another model is a std::bad_cast.
  void decode(const Reply& reply, KivStressDevice& decoder, ORSSerialPort& port) const;

 protected:
  /// Where a reply stands among the bytes that are kept; those from `end` on begin the next one.
  struct Found {
    std::size_t begin;
    std::size_t end;
    Kind kind;
  };

  /// Keeps that many bytes: none of the model's replies has to be looked for among more.
  explicit ReplyFraming(std::size_t keptBytes) : keptBytes_(keptBytes) {}

  void countFailedCheck() { ++failedChecks_; }

 private:
  /// The reply that the last byte completes; none while there is none.
  virtual std::optional<Found> find(ByteView kept) = 0;
  virtual void handOver(const Reply& reply, KivStressDevice& decoder, ORSSerialPort& port) const = 0;

  std::size_t keptBytes_;
  Bytes kept_;
  std::uint64_t discardedBytes_ = 0;
  std::uint64_t failedChecks_ = 0;
};

/// For a model whose driver discards what the machine answers: counts the bytes and finds no reply.
std::unique_ptr<ReplyFraming> makeUnreadFraming();

}  // namespace tarsil
