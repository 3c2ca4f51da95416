#pragma once

#include <poll.h>

#include <memory>
#include <vector>

#include "tarsil/runtime/detail/Reactor.hpp"

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

/// A reactor on a virtual clock: nobody waits for it, it is asked.
class VirtualReactor final : public Reactor {
 public:
  explicit VirtualReactor(std::shared_ptr<const VirtualClock> clock);

  Clock::Instant now() const override { return clock_->now(); }
  bool isVirtual() const override { return true; }
  /// Descriptors that are readable at the same time come in the order in which they were first watched.
  Work takeReadable() override;
  /// The machine may have news.
  void lookAround() { machineNews_->announce(); }

  using Reactor::drop;

  /// The descriptors whose watchers wait for a report.
  std::vector<pollfd> armedDescriptors() const;

 private:
  void workCame() override {}
  void workWasTaken(bool) override {}
  void firstAlarmIsAt(Clock::Instant) override {}

  std::optional<DescriptorSet::Event> firstReadable();

  const std::shared_ptr<const VirtualClock> clock_;
  /// What `firstReadable` asks, kept for the room that it takes.
  std::vector<pollfd> asked_;
  std::vector<WatchId> askedIds_;
};

}  // namespace tarsil::detail
