#include "tarsil/runtime/detail/ReadSource.hpp"

#include <poll.h>
#include <sys/ioctl.h>

namespace tarsil::detail {
namespace {

// A hung-up descriptor is readable for ever, so that says nothing about bytes.
bool isHungUpAndEmpty(int descriptor) {
  // Asking also moves bytes on that a terminal has received but not yet made readable.
  pollfd state{descriptor, POLLIN | POLLRDHUP, 0};
  poll(&state, 1, 0);
  if ((state.revents & (POLLHUP | POLLERR | POLLRDHUP)) == 0) return false;
  int held = 0;
  return ioctl(descriptor, FIONREAD, &held) < 0 || held == 0;
}

}  // namespace

void ReadSource::arm() {
  if (!watched_) {
    watch_ = reactor_->watch(descriptor_, std::static_pointer_cast<ReadSource>(shared_from_this()));
    watched_ = true;
    return;
  }
  if (!watch_ || isHungUpAndEmpty(descriptor_)) return;
  reactor_->rearm(*watch_);
}

void ReadSource::disarm() {
  if (watch_) reactor_->unwatch(*watch_);
}

}  // namespace tarsil::detail
