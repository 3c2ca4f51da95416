#include "tarsil/runtime/detail/MachineReactor.hpp"

#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include <chrono>

#include "tarsil/runtime/detail/succeeded.hpp"

namespace tarsil::detail {
namespace {

constexpr Epoll::Id workId = 0;
constexpr Epoll::Id timerId = 1;

}  // namespace

MachineReactor::MachineReactor()
    : workSignal_(succeeded(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")),
      timer_(succeeded(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "timerfd_create")) {
  epoll_.add(workSignal_.get(), workId);
  epoll_.add(timer_.get(), timerId);
}

Clock::Instant MachineReactor::now() const {
  return Clock::Instant(std::chrono::steady_clock::now().time_since_epoch());
}

Work MachineReactor::takeReadable() {
  if (watchCount() == 0) return {};
  // The reactor's own two descriptors may stand in front of the watched ones; asked again, the system goes on
  // behind them.
  for (int asked = 0; asked < 3; ++asked) {
    const auto id = wait(0);
    if (!id) return {};
    if (*id < firstWatch) continue;
    if (Work report = takeReport(*id)) return report;
  }
  return {};
}

Work MachineReactor::take(Epoll::Id id) {
  if (id == workId) return takeWork();
  if (id == timerId) return takeAlarm(now());
  return takeReport(id);
}

void MachineReactor::workIsDue(bool due) {
  eventfd_t count = 0;
  succeeded(due ? eventfd_write(workSignal_.get(), 1) : eventfd_read(workSignal_.get(), &count), "eventfd");
}

void MachineReactor::firstAlarmIsAt(Clock::Instant at) {
  itimerspec expiry{};  // all zero: no alarm
  if (at != never) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(at.time_since_epoch());
    expiry.it_value.tv_sec = seconds.count();
    expiry.it_value.tv_nsec = (at.time_since_epoch() - seconds).count();
  }
  succeeded(timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &expiry, nullptr), "timerfd_settime");
}

}  // namespace tarsil::detail
