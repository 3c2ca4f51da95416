#pragma once

#include <functional>
#include <optional>
#include <string>

#include "tarsil/support/process.hpp"

namespace tarsil::detail {

/// While it exists, a driver that would stop the process or block its thread for ever can be called so that
/// it does neither, and what the library prints meanwhile is heard. Outside such calls the process hooks that
/// were there before hold. Main thread.
class Containment {
 public:
  Containment();
  ~Containment();
  Containment(const Containment&) = delete;
  Containment& operator=(const Containment&) = delete;

  /// Calls `work`. The reason why it would have stopped or blocked the process; none when it returned. What
  /// it was called on is then in no state to be used again.
  static std::optional<std::string> call(const std::function<void()>& work);

 private:
  ProcessHooks before_;
};

}  // namespace tarsil::detail
