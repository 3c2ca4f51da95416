#include "simulators/devices/acceptedReply.hpp"

#include <optional>
#include <stdexcept>

#include "tarsil/codec/Crc16Register.hpp"

namespace tarsil::simulators {
namespace {

constexpr std::uint8_t STX = 0x02;
constexpr std::size_t shortestTested = 6;

std::uint16_t crcOf(ByteView bytes) {
  Crc16Register crc;
  for (const std::uint8_t byte : bytes) crc.add(byte);
  return crc.value();
}

/// The reader's test: the sum over all bytes but the last gives the last two.
bool isAccepted(ByteView reply) {
  if (reply.size() < shortestTested) return false;
  const std::uint16_t crc = crcOf(reply.first(reply.size() - 1));
  return reply[reply.size() - 2] == (crc & 0xFF) && reply[reply.size() - 1] == (crc >> 8);
}

bool isAcceptedTooEarly(ByteView reply) {
  for (std::size_t size = shortestTested; size < reply.size(); ++size) {
    if (isAccepted(reply.first(size))) return true;
  }
  return false;
}

std::optional<Bytes> withCheckBytes(const Bytes& frame) {
  for (unsigned low = 0; low <= 0xFF; ++low) {
    Bytes reply = frame;
    reply.push_back(static_cast<std::uint8_t>(low));
    const std::uint16_t crc = crcOf(reply);
    if ((crc & 0xFF) != low) continue;
    reply.push_back(static_cast<std::uint8_t>(crc >> 8));
    if (isAccepted(reply) && !isAcceptedTooEarly(reply)) return reply;
  }
  return std::nullopt;
}

}  // namespace

Bytes acceptedReply(std::uint8_t command, std::uint8_t status, ByteView data) {
  Bytes frame{STX, command, status, static_cast<std::uint8_t>(data.size())};
  frame.insert(frame.end(), data.begin(), data.end());
  if (auto reply = withCheckBytes(frame)) return *reply;

  const std::size_t fillerPosition = frame.size();
  frame[3] = static_cast<std::uint8_t>(data.size() + 1);
  frame.push_back(0);
  for (unsigned filler = 0; filler <= 0xFF; ++filler) {
    frame[fillerPosition] = static_cast<std::uint8_t>(filler);
    if (auto reply = withCheckBytes(frame)) return *reply;
  }
  throw std::logic_error("no filler byte gives a reply that its reader accepts");
}

}  // namespace tarsil::simulators
