#include "tarsil/runtime/detail/Epoll.hpp"

#include <sys/epoll.h>

#include <cerrno>
#include <string>

#include "tarsil/runtime/detail/succeeded.hpp"

namespace tarsil::detail {
namespace {

constexpr std::uint32_t once = EPOLLIN | EPOLLONESHOT;

int control(int epoll, int operation, int descriptor, std::uint32_t events, Epoll::Id id) {
  epoll_event event{};
  event.events = events;
  event.data.u64 = id;
  return epoll_ctl(epoll, operation, descriptor, &event);
}

}  // namespace

Epoll::Epoll() : epoll_(succeeded(epoll_create1(EPOLL_CLOEXEC), "epoll_create1")) {}

void Epoll::add(int descriptor, Id id) {
  succeeded(control(epoll_.get(), EPOLL_CTL_ADD, descriptor, EPOLLIN, id), "epoll_ctl");
}

bool Epoll::addOnce(int descriptor, Id id) {
  const int result = control(epoll_.get(), EPOLL_CTL_ADD, descriptor, once, id);
  if (result < 0 && errno == EPERM) return false;
  succeeded(result, "cannot watch descriptor " + std::to_string(descriptor));
  return true;
}

void Epoll::rearm(int descriptor, Id id) {
  succeeded(control(epoll_.get(), EPOLL_CTL_MOD, descriptor, once, id),
            "cannot go on watching descriptor " + std::to_string(descriptor));
}

void Epoll::remove(int descriptor) {
  control(epoll_.get(), EPOLL_CTL_DEL, descriptor, 0, 0);
}

std::optional<Epoll::Id> Epoll::wait(int timeout) const {
  epoll_event event{};
  if (epoll_wait(epoll_.get(), &event, 1, timeout) <= 0) return std::nullopt;
  return Id{event.data.u64};
}

}  // namespace tarsil::detail
