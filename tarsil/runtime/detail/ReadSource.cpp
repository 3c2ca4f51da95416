#include "tarsil/runtime/detail/ReadSource.hpp"

#include <poll.h>
#include <sys/ioctl.h>

namespace tarsil::detail {
namespace {

bool isHungUp(int descriptor) {
  pollfd state{descriptor, POLLIN | POLLRDHUP, 0};
  poll(&state, 1, 0);
  return (state.revents & (POLLHUP | POLLERR | POLLRDHUP)) != 0;
}

// A hung-up descriptor counts as readable for ever, with bytes or without.
bool holdsBytes(int descriptor) {
  int held = 0;
  return ioctl(descriptor, FIONREAD, &held) == 0 && held > 0;
}

}  // namespace

void ReadSource::arm() {
  if (!watched_) {
    watch_ = reactor_->watch(descriptor_, std::static_pointer_cast<ReadSource>(shared_from_this()));
    watched_ = true;
    return;
  }
  if (!watch_) return;
  // Asking once more whether it is hung up tells an error that has passed, and moves bytes on that a terminal
  // has received but not yet made readable.
  if (hungUp_ && isHungUp(descriptor_) && !holdsBytes(descriptor_)) return;
  reactor_->rearm(*watch_);
}

void ReadSource::disarm() {
  if (watch_) reactor_->unwatch(*watch_);
}

void ReadSource::willFire() {
  hungUp_ = isHungUp(descriptor_);
}

}  // namespace tarsil::detail
