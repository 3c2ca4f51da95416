#include "tarsil/runtime/detail/MachineReactor.hpp"

#include <chrono>

namespace tarsil::detail {
namespace {

constexpr DescriptorSet::Id workId = 0;
constexpr DescriptorSet::Id clockId = 1;

/// How long one of several alarms of an instant may take before another thread rings the others. Within the
/// leeway of a port's looks at its lines; to be woken sooner than the system's own tick costs the processor
/// more.
constexpr auto patience = std::chrono::milliseconds(4);

}  // namespace

MachineReactor::MachineReactor(Served served) : served_(served) {
  if (served_ == Served::byItsThread) {
    descriptors_.add(workSignal_.descriptor(), workId);
    descriptors_.add(clock_.descriptor(), clockId);
  } else {
    descriptors_.addForNews(workSignal_.descriptor(), workId);
    descriptors_.addForNews(clock_.descriptor(), clockId);
  }
}

Clock::Instant MachineReactor::now() const {
  return Clock::Instant(std::chrono::steady_clock::now().time_since_epoch());
}

Work MachineReactor::takeReadable() {
  if (watchCount() == 0) return {};
  // The reactor's own two descriptors may stand in front of the watched ones; asked again, the system goes on
  // behind them.
  for (int asked = 0; asked < 3; ++asked) {
    const auto event = wait(0);
    if (!event) return {};
    if (event->id < firstWatch) continue;
    if (Work report = takeReport(event->id, event->hungUp)) return report;
  }
  return {};
}

Work MachineReactor::take(const Event& event) {
  if (event.id == workId) return takeWork();
  if (event.id != clockId) return takeReport(event.id, event.hungUp);
  if (Work ringing = takeRound()) return ringing;
  // Another thread was faster, or the alarm was put off. The clock rings once for what it was set to.
  tellOfAlarmsAgain();
  return {};
}

void MachineReactor::firstAlarmIsAt(Clock::Instant at) {
  // A clock that has rung stands still: most often the only alarm was taken, and comes back in a moment. Only
  // who is served by its thread still has to take the ring back.
  const bool hasRung = clockAt_ <= now();
  clockAt_ = at;
  if (at == never && hasRung && served_ == Served::byManyThreads) return;
  clock_.setTo(at);
}

Work MachineReactor::takeRound() {
  const Clock::Instant began = now();
  Round round = beginRound(began, began + patience);
  if (!round.first) return {};
  return [this, first = std::move(round.first), at = round.at]() mutable {
    for (auto alarm = std::move(first); alarm; alarm = nextOfRound(at)) alarm->ring();
  };
}

void MachineReactor::workWasTaken(bool moreIsLeft) {
  if (served_ == Served::byManyThreads) {
    // The signal woke one thread, this one. The next piece needs another.
    if (moreIsLeft) workSignal_.raise();
  } else if (!moreIsLeft) {
    workSignal_.lower();
  }
}

}  // namespace tarsil::detail
