#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

/// What a host and its watcher process share: a page of memory, a few descriptors, and a record on disk.
/// Times are nanoseconds; those of the page count while the machine sleeps (CLOCK_BOOTTIME), those of the
/// record are of the time of day.
namespace tarsil::detail {

/// The descriptors that a watcher inherits, by number; standard streams lead nowhere.
enum WatcherDescriptor : int {
  watchedLine = 3,
  sharedPage = 4,
  /// A socket whose other end only the host has: its end is the host's end, and a byte is "look at the page".
  bell = 5,
  /// A named socket on which the next host asks.
  mail = 6,
  recordFile = 7,
  firstUnused = 8,
};

/// How a watcher that could not begin ends.
enum WatcherExit : int { cannotShare = 3, isNoTerminal = 4, cannotDetach = 5, cannotRecord = 6 };

/// Bytes that go out in one piece, `times` times, each time followed by a pause of `every`.
struct StopStep {
  static constexpr std::size_t capacity = 112;
  std::int64_t every = 0;
  std::uint32_t times = 0;
  std::uint32_t length = 0;
  std::uint8_t bytes[capacity] = {};
};

struct StopPlan {
  static constexpr std::size_t capacity = 8;
  std::int64_t heartbeat = 0;
  std::uint32_t stepCount = 0;
  StopStep steps[capacity];
};

enum class WatchOutcome : std::uint32_t { watching, stopping, stopSent, handedOver, disarmed };
enum class WatchCause : std::uint32_t { none, hostSilent, hostGone, hostAsked };

/// What stands in the record file and in an answer to the next host.
struct WatchRecord {
  static constexpr std::uint64_t currentLayout = 0x7461'7273'696c'0001;
  std::uint64_t layout = currentLayout;
  WatchOutcome outcome = WatchOutcome::watching;
  WatchCause cause = WatchCause::none;
  std::int32_t host = 0;
  /// The errno of the last write that failed, 0 while none has.
  std::int32_t lastError = 0;
  std::uint32_t stopsSent = 0;
  std::uint32_t stopsFailed = 0;
  /// 0: never.
  std::int64_t startedAt = 0;
  std::int64_t lastBeatAt = 0;
  std::int64_t tookOverAt = 0;
  std::int64_t firstStopAt = 0;
  std::int64_t lastStopAt = 0;
  std::int64_t endedAt = 0;
};

/// Who has the belt. Large numbers, so that a stray write of the host is none of them: a watcher takes what
/// it does not know for a host that has failed.
enum class Belt : std::uint64_t {
  hosts = 0x686f'7374'2061'6c76,
  watchers = 0x7761'7463'6865'7220,
  /// The watcher had it, and let go of the line.
  nobodys = 0x6c65'7420'676f'2021,
  /// The host ended the watch.
  disarmed = 0x6469'7361'726d'6564,
};

struct WatchPage {
  static constexpr std::uint64_t currentLayout = 0x7461'7273'696c'1001;
  std::uint64_t layout = currentLayout;
  StopPlan plan;
  WatchRecord record;

  std::atomic<std::int64_t> lastBeat = 0;
  std::atomic<Belt> belt = Belt::hosts;
  /// The host wants the line back from a watcher that took over.
  std::atomic<std::uint32_t> isDismissed = 0;
  /// When the watcher last looked.
  std::atomic<std::int64_t> watcherBeat = 0;

  static_assert(std::atomic<std::int64_t>::is_always_lock_free && std::atomic<Belt>::is_always_lock_free);
};

/// What the next host writes into the mail: one byte.
enum class WatcherMail : char { report = '?', handOver = 'H' };

}  // namespace tarsil::detail
