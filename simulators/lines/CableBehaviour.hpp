#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tarsil/runtime/Clock.hpp"

namespace tarsil::simulators {

/// Which way bytes go: what the device sends, or what the host sends.
enum class Way : std::uint8_t { replies, commands };

/// What may happen to one byte on its way.
enum class ByteFault : std::uint8_t { lose, repeat, change, add };

/// The fault called "lose", "double", "change" or "add"; none for another word.
std::optional<ByteFault> byteFaultNamed(std::string_view word);

/// What a cable does to the bytes of one way. The faults are chances for each byte, 0 (never) to 1 (always).
struct WayBehaviour {
  double lose = 0.0;
  double repeat = 0.0;
  /// Another value in its place.
  double change = 0.0;
  /// A byte that nobody sent in front of it.
  double add = 0.0;
  bool muted = false;

  bool operator==(const WayBehaviour&) const = default;
};

/// How a cable between a simulated device and its host behaves. Bytes always travel at the line's speed.
///
/// It is written as words with commas between them, in any order, a later one overriding an earlier one:
///
///     wire                the bytes arrive one after the other as they travel (what no words mean)
///     adapter             a USB adapter of the usual kind: latency=16ms,packet=62
///     gentle              commands arrive at once, each byte of a reply waits until the host has read the
///                         one before it, and a reply that its driver wants in one piece arrives so: what
///                         some bare drivers need, and no real line does
///     latency=16ms        the adapter hands over what it has each time that this has passed (us, ms or s)
///     packet=62           ... and as soon as it has this many bytes; 62 when only a latency is given
///     delay=30ms          what is handed over comes up to this much later, in its order
///     split=1/10          the chance that what is handed over comes in two pieces
///     join=1/10           the chance that it waits for what comes after it (for 50 ms at the longest)
///     lose=1/200          the chances of a byte to be lost, doubled, changed, or to have one put before it;
///     double=0.01         "replies.lose=1/200" and "commands.lose=1/200" say it of one way only
///     change=1/500
///     add=1/500
///     mute=replies        nothing gets through that way ("replies", "commands" or "both")
///     seed=7              another sequence of faults; the same seed gives the same faults
struct CableBehaviour {
  bool gentle = false;
  /// Zero without an adapter.
  Duration latency{};
  /// Bytes; 0 without an adapter.
  std::size_t packet = 0;
  Duration delay{};
  double split = 0.0;
  double join = 0.0;
  WayBehaviour replies;
  WayBehaviour commands;
  std::uint32_t seed = 1;

  static CableBehaviour wire() { return {}; }
  static CableBehaviour adapter();
  static CableBehaviour gentleLine();

  /// Throws std::invalid_argument, with a text for a person, for what is not understood, out of its range or
  /// contradicts itself.
  static CableBehaviour read(std::string_view text);
  /// As `read` reads it; "wire" for one that does nothing.
  std::string text() const;

  bool hasAdapter() const { return packet > 0; }

  bool operator==(const CableBehaviour&) const = default;
};

/// The cable of a simulated device when nobody says which: the adapter that stands before most machines. On a
/// wire that nothing delays a host gets each byte by itself, and hides what it makes of pieces.
CableBehaviour usualCable();

}  // namespace tarsil::simulators
