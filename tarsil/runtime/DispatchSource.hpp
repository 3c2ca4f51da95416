#pragma once

#include <functional>
#include <memory>

#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/DispatchQueue.hpp"

namespace tarsil {

/// Runs a handler on a queue each time that a descriptor is readable or a time has come.
/// A source starts suspended: set its handlers, then `resume()` it. To resume it without an event handler, or
/// to set a handler later, stops the process. The event handler never runs concurrently with itself. After
/// `cancel()` no further event handler starts; when the one that runs has returned, the cancel handler runs,
/// exactly once, on the source's queue, and then both handlers are let go. That holds for a source that was
/// never resumed too, and dropping the last reference cancels it. All members may be called on any thread.
///
/// On the global queue the handler runs on the very thread that woke for the event.
class DispatchSource {
 public:
  virtual ~DispatchSource() = default;
  DispatchSource(const DispatchSource&) = delete;
  DispatchSource& operator=(const DispatchSource&) = delete;

  /// Fires while `descriptor` is readable. A descriptor that hung up fires as long as it holds bytes, and
  /// once more for its end; after that the source waits for its cancellation, even where another end may come
  /// (a named pipe, the controlling side of a pseudo-terminal). A regular file never fires. The caller keeps
  /// the descriptor open until the cancel handler runs, and watches it with one source only; else the process
  /// stops.
  static std::shared_ptr<DispatchSource> read(int descriptor, DispatchQueue queue);

  /// Fires first `delay` from now, then every `interval` (0.1 ms at the least). Each firing may come up to
  /// `leeway` late, and the next is due an `interval` after it: timers with a leeway wait for instants that
  /// they share, so that one wake-up serves several, and those of one interval soon fire together. On
  /// `VirtualTime` each firing is exact. Beats that were missed are left out.
  static std::shared_ptr<DispatchSource> timer(Duration delay, Duration interval, Duration leeway,
                                               DispatchQueue queue);

  virtual void setEventHandler(Work handler) = 0;
  virtual void setCancelHandler(Work handler) = 0;
  virtual void resume() = 0;
  virtual void cancel() = 0;
  virtual bool isCancelled() const = 0;

 protected:
  DispatchSource() = default;
};

}  // namespace tarsil
