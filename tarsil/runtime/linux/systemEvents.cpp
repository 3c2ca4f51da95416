#include "tarsil/runtime/detail/systemEvents.hpp"

#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <string_view>
#include <system_error>

#include "tarsil/support/process.hpp"

namespace tarsil::detail {
namespace {

constexpr std::uint32_t once = EPOLLIN | EPOLLRDHUP | EPOLLONESHOT;

int succeeded(int result, std::string_view what, int descriptor = -1) {
  if (result >= 0) return result;
  const std::string which = descriptor < 0 ? "" : ' ' + std::to_string(descriptor);
  fatalError(std::string(what) + which + ": " + std::generic_category().message(errno));
}

int control(int set, int operation, int descriptor, std::uint32_t events, DescriptorSet::Id id) {
  epoll_event event{};
  event.events = events;
  event.data.u64 = id;
  return epoll_ctl(set, operation, descriptor, &event);
}

}  // namespace

DescriptorSet::DescriptorSet() : set_(succeeded(epoll_create1(EPOLL_CLOEXEC), "epoll_create1")) {}

void DescriptorSet::add(int descriptor, Id id) {
  succeeded(control(set_.get(), EPOLL_CTL_ADD, descriptor, EPOLLIN, id), "epoll_ctl");
}

void DescriptorSet::addForNews(int descriptor, Id id) {
  succeeded(control(set_.get(), EPOLL_CTL_ADD, descriptor, EPOLLIN | EPOLLET, id), "epoll_ctl");
}

bool DescriptorSet::addOnce(int descriptor, Id id) {
  const int result = control(set_.get(), EPOLL_CTL_ADD, descriptor, once, id);
  if (result < 0 && errno == EPERM) return false;
  succeeded(result, "cannot watch descriptor", descriptor);
  return true;
}

void DescriptorSet::rearm(int descriptor, Id id) {
  succeeded(control(set_.get(), EPOLL_CTL_MOD, descriptor, once, id), "cannot go on watching descriptor",
            descriptor);
}

void DescriptorSet::remove(int descriptor) {
  control(set_.get(), EPOLL_CTL_DEL, descriptor, 0, 0);
}

std::optional<DescriptorSet::Event> DescriptorSet::wait(int timeout) const {
  epoll_event event{};
  if (epoll_wait(set_.get(), &event, 1, timeout) <= 0) return std::nullopt;
  return Event{event.data.u64, (event.events & (EPOLLHUP | EPOLLERR | EPOLLRDHUP)) != 0};
}

Signal::Signal() : signal_(succeeded(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")) {}

void Signal::raise() {
  succeeded(eventfd_write(signal_.get(), 1), "eventfd");
}

void Signal::lower() {
  eventfd_t count = 0;
  succeeded(eventfd_read(signal_.get(), &count), "eventfd");
}

AlarmClock::AlarmClock()
    : timer_(succeeded(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "timerfd_create")) {}

void AlarmClock::setTo(Clock::Instant at) {
  itimerspec expiry{};  // all zero: never
  if (at != Clock::Instant::max()) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(at.time_since_epoch());
    expiry.it_value.tv_sec = seconds.count();
    expiry.it_value.tv_nsec = (at.time_since_epoch() - seconds).count();
  }
  succeeded(timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &expiry, nullptr), "timerfd_settime");
}

bool isHungUp(int descriptor) {
  pollfd state{descriptor, POLLIN | POLLRDHUP, 0};
  poll(&state, 1, 0);
  return (state.revents & (POLLHUP | POLLERR | POLLRDHUP)) != 0;
}

// The system numbers a process's threads, the first one like the process. Asked once a thread: every call
// that is handed to the main thread wants to know.
bool isFirstThread() {
  static thread_local const bool isFirst = gettid() == getpid();
  return isFirst;
}

void nameThisThread(const char* name) {
  pthread_setname_np(pthread_self(), name);
}

}  // namespace tarsil::detail
