#pragma once

#include "tarsil/runtime/Clock.hpp"

namespace tarsil::detail {

/// A clock that stands still until it is set. One thread.
class VirtualClock {
 public:
  static constexpr Clock::Instant start{};

  Clock::Instant now() const { return now_; }
  void moveTo(Clock::Instant now) { now_ = now; }

 private:
  Clock::Instant now_ = start;
};

}  // namespace tarsil::detail
