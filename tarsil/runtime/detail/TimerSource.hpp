#pragma once

#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/detail/Reactor.hpp"
#include "tarsil/runtime/detail/Source.hpp"

namespace tarsil::detail {

/// Waits for one beat after the other.
class TimerSource final : public Source, public Alarm {
 public:
  TimerSource(Duration delay, Duration interval, Duration leeway, DispatchQueue queue);

  void ring() override { happened(); }

 private:
  void arm() override;
  void disarm() override;

  const Duration interval_;
  const Duration leeway_;
  bool started_ = false;
  Clock::Instant beat_;
};

}  // namespace tarsil::detail
