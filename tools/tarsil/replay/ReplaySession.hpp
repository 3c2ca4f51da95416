#pragma once

#include "tools/tarsil/replay/Events.hpp"
#include "tools/tarsil/replay/Operation.hpp"

namespace tarsil::cli {

/// Runs the operations of a script, one after another. Main thread; one session at a time.
class ReplaySession {
 public:
  explicit ReplaySession(Events::Listener listener) : events_(std::move(listener)) {}

  /// Everything that the operation sets off without the clock moving has happened when this returns. Throws
  /// ScriptError when the operation cannot be read.
  void perform(const Operation& operation);

 private:
  Events events_;
};

}  // namespace tarsil::cli
