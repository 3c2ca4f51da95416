#pragma once

#include <csignal>
#include <functional>

#include "tarsil/runtime/Observation.hpp"
#include "tarsil/support/FileDescriptor.hpp"

namespace tarsil::cli {

/// While it exists, Ctrl-C (SIGINT), SIGTERM and the closing of the terminal (SIGHUP) do not end the process:
/// they call `action` on the main run loop. Make it on the main thread before any other thread runs.
class Interruption {
 public:
  explicit Interruption(std::function<void()> action);
  /// With an action of its own for the closing of the terminal.
  Interruption(std::function<void()> action, std::function<void()> onHangUp);
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

 private:
  sigset_t before_{};
  FileDescriptor signals_;
  Observation watch_;
};

}  // namespace tarsil::cli
