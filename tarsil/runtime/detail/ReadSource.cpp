#include "tarsil/runtime/detail/ReadSource.hpp"

#include <sys/ioctl.h>

namespace tarsil::detail {
namespace {

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
  // The handler has seen the end. Still there? An error that has passed is none.
  if (atEnd_ && isHungUp(descriptor_)) return;
  reactor_->rearm(*watch_);
}

void ReadSource::disarm() {
  if (watch_) reactor_->unwatch(*watch_);
}

void ReadSource::willFire() {
  // In this order: asking for the hang-up moves bytes on that a terminal has received but not yet made
  // readable.
  atEnd_ = hungUp_ && isHungUp(descriptor_) && !holdsBytes(descriptor_);
}

}  // namespace tarsil::detail
