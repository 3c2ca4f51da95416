#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "tarsil/runtime/Clock.hpp"

namespace tarsil {

/// What a watcher did on a line, for the host that comes after.
struct WatchReport {
  enum class Outcome : std::uint8_t {
    /// A host lives and is watched over.
    watching,
    /// The watcher has the line and sends the stop.
    stopping,
    /// It sent the stop as long as it was to.
    stopSent,
    /// It sent the stop until another host took the line.
    handedOver,
    /// The host ended its watch in order; nothing was sent.
    disarmed,
    /// The watcher did not live to tell: the machine went off, or somebody killed it. Nobody knows what the
    /// belt did.
    unknown,
  };
  enum class Cause : std::uint8_t {
    none,
    /// No heartbeat in time.
    hostSilent,
    /// The host's process ended.
    hostGone,
    /// The host gave the belt away.
    hostAsked,
  };
  using Time = std::chrono::system_clock::time_point;

  Outcome outcome = Outcome::unknown;
  Cause cause = Cause::none;
  /// The process that was watched.
  pid_t host = 0;
  Time startedAt;
  /// None of what follows without a cause.
  std::optional<Time> lastBeatAt;
  std::optional<Time> firstStopAt;
  std::optional<Time> lastStopAt;
  std::optional<Time> endedAt;
  /// How often a step of the stop was written to the line, and how often that failed.
  std::uint32_t stopsSent = 0;
  std::uint32_t stopsFailed = 0;
  /// errno of the last failure, 0 without one.
  int lastError = 0;

  bool operator==(const WatchReport&) const = default;
};

/// What was done for an earlier host, for people: a sentence without its full stop. Any thread.
std::string textOf(const WatchReport& report);

/// What the last watcher on this line did, asked of itself where it still runs; none: there was none. `line`
/// and `records` are those of the watcher's plan. Waits 1 s at most. Any thread.
std::optional<WatchReport> lastWatch(const std::string& line, const std::string& records = {});

/// Asks a watcher that still stops the belt of a dead host to let go of the line. Afterwards the line can be
/// opened (unless the host itself still lives, frozen, and holds it), and the stop is the caller's duty: the
/// belt may move. Answers as `lastWatch`; a watcher whose host lives stays, and answers `watching`. Waits 1 s
/// at most. Any thread.
std::optional<WatchReport> takeLineFromWatcher(const std::string& line, const std::string& records = {});

/// Drops the record of a watch that has ended: the belt was dealt with since, and the next host has nothing
/// to learn from it. Any thread.
void forgetWatch(const std::string& line, const std::string& records = {});

}  // namespace tarsil
