#include "tarsil/runtime/detail/VirtualReactor.hpp"

#include <poll.h>

#include <utility>

namespace tarsil::detail {

VirtualReactor::VirtualReactor(std::shared_ptr<const VirtualClock> clock) : clock_(std::move(clock)) {}

Work VirtualReactor::takeReadable() {
  std::optional<WatchId> first;
  {
    const std::lock_guard lock(mutex_);
    for (const auto& [id, watch] : watches_) {
      // Each descriptor is asked itself: poll waits for bytes that a terminal has in transit, epoll may miss
      // them.
      pollfd state{watch.descriptor, POLLIN, 0};
      if (!watch.armed || poll(&state, 1, 0) <= 0) continue;
      first = id;
      break;
    }
  }
  return first ? takeReport(*first) : Work();
}

std::vector<pollfd> VirtualReactor::armedDescriptors() const {
  std::vector<pollfd> armed;
  const std::lock_guard lock(mutex_);
  for (const auto& [id, watch] : watches_) {
    if (watch.armed) armed.push_back({watch.descriptor, POLLIN, 0});
  }
  return armed;
}

}  // namespace tarsil::detail
