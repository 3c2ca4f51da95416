#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "simulators/radio/AttributeServer.hpp"

namespace tarsil::simulators {

/// Something in the air that advertises itself and can be connected to.
struct RadioPeripheral {
  /// The low byte first. The two top bits of the last byte set: a random static address.
  std::array<std::uint8_t, 6> address{};
  std::string name;
  /// The service that it advertises.
  std::uint16_t service = 0;
  AttributeServer attributes;

  bool advertises = false;
  /// Whether its advertising tells its name.
  bool tellsName = true;
};

}  // namespace tarsil::simulators
