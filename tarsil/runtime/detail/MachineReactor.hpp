#pragma once

#include "tarsil/runtime/detail/Reactor.hpp"

namespace tarsil::detail {

/// A reactor on the machine's clock: threads wait for its one descriptor.
class MachineReactor final : public Reactor {
 public:
  /// `byItsThread`: the descriptor is readable exactly while something is due, so that a foreign loop may
  /// wait for it. `byManyThreads`: they wait in `wait`, and for each thing that falls due one of them wakes.
  enum class Served { byItsThread, byManyThreads };
  explicit MachineReactor(Served served);

  Clock::Instant now() const override;
  bool isVirtual() const override { return false; }
  Work takeReadable() override;

  int descriptor() const { return descriptors_.descriptor(); }

  using Event = DescriptorSet::Event;
  /// Waits up to `timeout` milliseconds, for ever when it is negative. Says what is due; none after the
  /// time-out.
  std::optional<Event> wait(int timeout) const { return descriptors_.wait(timeout); }
  /// Takes what `wait` announced; empty when another thread was faster.
  Work take(const Event& event);

 private:
  Work takeRound();
  void workCame() override { workSignal_.raise(); }
  void workWasTaken(bool moreIsLeft) override;
  void firstAlarmIsAt(Clock::Instant at) override;

  const Served served_;
  Signal workSignal_;
  AlarmClock clock_;
  /// What the clock was last set to.
  Clock::Instant clockAt_ = never;
};

}  // namespace tarsil::detail
