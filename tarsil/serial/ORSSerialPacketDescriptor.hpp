#pragma once

#include <any>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "tarsil/regex/RegularExpression.hpp"
#include "tarsil/support/Uuid.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil {

/// The shape of a packet: fixed bytes, a prefix and a suffix, a regular expression, or whatever a function of
/// the client accepts.
///
/// Immutable and never copied: a descriptor is its own identity. Two made from the same arguments are
/// different ones, and are listened for side by side. Any thread.
class ORSSerialPacketDescriptor {
 public:
  /// True for bytes that form a whole packet. A port calls it on its own queue, for every tail of the bytes
  /// that it holds, shortest first, each time that a byte arrives: it must be quick, and must not throw.
  using ResponseEvaluator = std::function<bool(ByteView)>;

  /// A packet is whatever the evaluator accepts; without one, any bytes at all, but not none.
  struct Evaluated {
    /// The longest packet considered, in bytes, here as in the other shapes.
    std::uint64_t maximumPacketLength = 0;
    /// Anything of the client's, here as in the other shapes.
    std::any userInfo = {};
    ResponseEvaluator responseEvaluator = {};
  };
  /// A packet is exactly these bytes. Empty ones never come.
  struct FixedPacket {
    Bytes packetData = {};
    std::any userInfo = {};
  };
  /// A packet begins with the prefix and ends with the suffix; the two may overlap. One of them may be
  /// absent, and an empty one is always there; when both are absent, nothing is a packet.
  struct PrefixAndSuffix {
    std::optional<Bytes> prefix = {};
    std::optional<Bytes> suffix = {};
    std::uint64_t maximumPacketLength = 0;
    std::any userInfo = {};
  };
  /// The same with the UTF-8 bytes of two texts.
  struct PrefixAndSuffixStrings {
    std::optional<std::string> prefixString = {};
    std::optional<std::string> suffixString = {};
    std::uint64_t maximumPacketLength = 0;
    std::any userInfo = {};
  };
  /// A packet is UTF-8 text that the expression matches at its start; the match need not reach the end.
  struct Expression {
    RegularExpression regularExpression;
    std::uint64_t maximumPacketLength = 0;
    std::any userInfo = {};
  };

  /// Throws std::logic_error: a descriptor needs a shape.
  ORSSerialPacketDescriptor();
  explicit ORSSerialPacketDescriptor(Evaluated shape);
  explicit ORSSerialPacketDescriptor(FixedPacket shape);
  explicit ORSSerialPacketDescriptor(PrefixAndSuffix shape);
  explicit ORSSerialPacketDescriptor(PrefixAndSuffixStrings shape);
  explicit ORSSerialPacketDescriptor(Expression shape);

  ORSSerialPacketDescriptor(const ORSSerialPacketDescriptor&) = delete;
  ORSSerialPacketDescriptor& operator=(const ORSSerialPacketDescriptor&) = delete;

  enum class Kind { evaluated, fixedPacket, prefixAndSuffix, expression };
  Kind kind() const { return kind_; }
  /// What the descriptor was made from; none in the other kinds.
  const std::optional<Bytes>& packetData() const { return packetData_; }
  const std::optional<Bytes>& prefix() const { return prefix_; }
  const std::optional<Bytes>& suffix() const { return suffix_; }
  const std::optional<RegularExpression>& regularExpression() const { return regularExpression_; }

  /// In bytes. Also the size of the buffer in which a port looks for this packet.
  std::uint64_t maximumPacketLength() const { return maximumPacketLength_; }
  const std::any& userInfo() const { return userInfo_; }
  const Uuid& uuid() const { return uuid_; }
  const ResponseEvaluator& responseEvaluator() const { return responseEvaluator_; }

  std::size_t hash() const { return uuid_.hash(); }
  /// Equal when the uuids are.
  bool operator==(const ORSSerialPacketDescriptor& other) const { return uuid_ == other.uuid_; }

  /// The evaluator's verdict on the bytes; their length is not looked at.
  bool dataIsValidPacket(ByteView bytes) const { return responseEvaluator_(bytes); }

  /// The shortest packet with which the buffer ends, if any. The empty packet is none.
  std::optional<Bytes> packetMatchingAtEndOfBuffer(ByteView buffer) const;

 private:
  Kind kind_;
  std::optional<Bytes> packetData_;
  std::optional<Bytes> prefix_;
  std::optional<Bytes> suffix_;
  std::optional<RegularExpression> regularExpression_;
  std::uint64_t maximumPacketLength_;
  std::any userInfo_;
  ResponseEvaluator responseEvaluator_;
  Uuid uuid_ = Uuid::random();
};

}  // namespace tarsil
