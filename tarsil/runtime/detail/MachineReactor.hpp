#pragma once

#include "tarsil/runtime/detail/FileDescriptor.hpp"
#include "tarsil/runtime/detail/Reactor.hpp"

namespace tarsil::detail {

/// A reactor on the machine's clock: threads wait for its one descriptor.
class MachineReactor final : public Reactor {
 public:
  MachineReactor();

  Clock::Instant now() const override;
  bool isVirtual() const override { return false; }
  Work takeReadable() override;

  /// Readable exactly while something is due.
  int descriptor() const { return epoll_.descriptor(); }

  /// Waits up to `timeout` milliseconds, for ever when it is negative. The id says what is due; none after
  /// the time-out.
  std::optional<Epoll::Id> wait(int timeout) const { return epoll_.wait(timeout); }
  /// Takes what `wait` announced; empty when another thread was faster.
  Work take(Epoll::Id id);

 private:
  void workIsDue(bool due) override;
  void firstAlarmIsAt(Clock::Instant at) override;

  const FileDescriptor workSignal_;
  const FileDescriptor timer_;
};

}  // namespace tarsil::detail
