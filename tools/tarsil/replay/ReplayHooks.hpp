#pragma once

#include "tarsil/support/process.hpp"
#include "tools/tarsil/replay/Events.hpp"

namespace tarsil::cli {

/// While it exists, what the library does to its process becomes events: a fixed text that it prints, a fatal
/// error, a thread that never returns. The latter two throw ProcessStopped. Main thread.
class ReplayHooks {
 public:
  explicit ReplayHooks(Events& events);
  ~ReplayHooks();
  ReplayHooks(const ReplayHooks&) = delete;
  ReplayHooks& operator=(const ReplayHooks&) = delete;

 private:
  ProcessHooks before_;
};

}  // namespace tarsil::cli
