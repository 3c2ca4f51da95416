#pragma once

#include <atomic>
#include <cstdint>

#include "tarsil/runtime/Clock.hpp"

namespace tarsil::detail {

/// Something that falls due at an instant. Alarms of one instant ring in the order of their creation.
class Alarm {
 public:
  virtual ~Alarm() = default;
  Alarm(const Alarm&) = delete;
  Alarm& operator=(const Alarm&) = delete;

  /// The reactor has let go of the alarm and no lock is held.
  virtual void ring() = 0;
  /// The reactor ends; the alarm will not ring.
  virtual void abandon() {}

 protected:
  Alarm() = default;

 private:
  friend class Reactor;
  static std::uint64_t nextOrder() {
    static std::atomic<std::uint64_t> count = 0;
    return count++;
  }
  const std::uint64_t order_ = nextOrder();
  /// Guarded by the reactor.
  Clock::Instant at_;
};

}  // namespace tarsil::detail
