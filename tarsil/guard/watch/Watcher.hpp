#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "tarsil/guard/Answer.hpp"
#include "tarsil/runtime/Clock.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil {

/// The host's end of a watcher: a process of its own that has the open line of an exercise device, too, and
/// stops the belt when this process fails. Killed, stopped, crashed or frozen, with or without its process
/// group, or gone without a word: the first byte of the stop leaves when the process ends, and within a
/// second when `alive()` stays away for a heartbeat.
///
/// The watcher takes over once: a host that comes back hears so from `alive()`, and has the belt again after
/// `disarm()`. As long as it watches, or stops, the line stays locked for others; `lastWatch.hpp` is how the
/// next host gets it.
///
/// Times are the machine's, never a virtual clock's, and go on while the machine sleeps.
class Watcher {
 public:
  /// A part of the stop: `bytes` go out in one piece, `times` times, each time followed by a pause of
  /// `every`.
  struct Step {
    /// 1 to 112 bytes.
    Bytes bytes;
    /// 10 ms to a minute.
    Duration every = std::chrono::seconds(1);
    /// 1 to 10,000.
    int times = 1;
  };

  struct Plan {
    /// What the line is called by this host and the next one: the same for the same adapter, whatever number
    /// the system gives it (its stable path, say). Not empty.
    std::string line;
    /// 1 to 8 parts, one after the other. The watcher hears nothing of the device: they are sent to their
    /// end, or until another host takes the line.
    std::vector<Step> stop;
    /// 50 ms to a minute.
    Duration heartbeat = std::chrono::milliseconds(500);
    /// The watcher program. Empty: `libexec/tarsil/tarsil-watcher` beside or above the running program's
    /// folder, or where it was installed.
    std::string program = {};
    /// Where it leaves its record for the next host. Empty: `.local/state/tarsil/watch` in the user's home.
    std::string records = {};
  };

  enum class State {
    /// It would act.
    watching,
    /// It acted: the belt was told to stop, and no longer belongs to this host. Stays so until `disarm()`.
    tookOver,
    /// `disarm()` ended the watch.
    disarmed,
    /// The watcher process has died, or does not run: nobody would stop the belt.
    lost,
  };

  /// A watcher that watches, or why there is none.
  struct Start {
    Answer answer;
    std::unique_ptr<Watcher> watcher;
  };

  /// Starts the process; takes some milliseconds, 5 s at most. The first heartbeat begins now. `line` is the
  /// descriptor of an open terminal with its settings in force: the watcher keeps these, and gets a
  /// duplicate; the caller's stays the caller's. Any thread.
  static Start start(int line, const Plan& plan);

  /// Without `disarm()` before, the belt is left to the watcher, which stops it at once.
  ~Watcher();
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  /// The host lives. One that comes later than a heartbeat after the last one is no sign of life any more:
  /// the watcher takes over, as it would have by itself. Any thread, also in a signal handler: never waits,
  /// allocates nothing.
  State alive() noexcept;
  /// As `alive()`, without being a sign of life.
  State state() const noexcept;

  /// Gives the belt to the watcher, which begins to stop it at once. As `alive()`, any thread.
  State stopNow() noexcept;

  /// Ends the watch in order: the belt was seen to stand. When it returns `disarmed`, the watcher has sent
  /// nothing, will send nothing, and has let go of the line; with `tookOver` it had acted, and has let go of
  /// the line now. `lost`: nobody says so, and a process that does not run may still hold the line. Waits for
  /// some milliseconds, 1 s at most.
  State disarm();

 private:
  struct Shared;
  explicit Watcher(std::unique_ptr<Shared> shared);
  bool isLost() const noexcept;
  void ring() const noexcept;

  const std::unique_ptr<Shared> shared_;
};

}  // namespace tarsil
