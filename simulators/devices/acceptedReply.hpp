#pragma once

#include <cstdint>

#include "tarsil/support/bytes.hpp"

namespace tarsil::simulators {

/// A reply frame of the Lode treadmill that its reader accepts: STX, command, status, data length, data,
/// check bytes.
///
/// The reader takes the low check byte into the sum that it is checked by, so for most frames no pair of
/// check bytes fits; and it tests after every byte from the sixth on, so no shorter beginning of the frame
/// may fit either. A filler byte after the data, counted in the length, gives the freedom to find a frame
/// that fits exactly at its end.
Bytes acceptedReply(std::uint8_t command, std::uint8_t status, ByteView data);

}  // namespace tarsil::simulators
