#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>

#include "tarsil/support/bytes.hpp"

namespace tarsil::simulators {

/// The attribute server of a simulated peripheral: answers what a central asks about its services,
/// characteristics and values. Speaks the Attribute Protocol; pure bytes in, bytes out.
class AttributeServer {
 public:
  /// Bits of a characteristic's properties.
  static constexpr std::uint8_t mayBeRead = 0x02;
  static constexpr std::uint8_t mayBeWritten = 0x0C;
  static constexpr std::uint8_t notifies = 0x10;

  void addService(std::uint16_t UUID);
  /// Adds to the service added last; hands back the handle of its value. One that notifies also gets the
  /// descriptor by which the central switches notifications on.
  std::uint16_t addCharacteristic(std::uint16_t UUID, std::uint8_t properties, Bytes value);

  /// The answer to one request; empty when it wants none.
  Bytes answer(ByteView request);
  /// A notification of a value, cut to what the connection allows; none while the central has not asked for
  /// them.
  std::optional<Bytes> notification(std::uint16_t valueHandle, ByteView value) const;
  bool isSubscribed(std::uint16_t valueHandle) const;

  /// A new connection begins: nothing is agreed yet, and nobody has subscribed.
  void reset();

 private:
  struct Attribute {
    std::uint16_t type;
    Bytes value;
  };

  std::uint16_t add(std::uint16_t type, Bytes value);
  std::uint16_t lastHandle() const;
  std::uint16_t endOfService(std::uint16_t serviceHandle) const;
  Bytes exchangeMTU(ByteView request);
  Bytes list(ByteView request,
             const std::function<Bytes(std::uint16_t handle, const Attribute&)>& entry) const;
  Bytes findInformation(ByteView request) const;
  Bytes read(ByteView request) const;
  Bytes write(ByteView request);

  std::map<std::uint16_t, Attribute> attributes_;
  std::size_t mtu_ = 23;
};

}  // namespace tarsil::simulators
