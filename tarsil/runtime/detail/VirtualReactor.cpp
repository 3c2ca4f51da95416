#include "tarsil/runtime/detail/VirtualReactor.hpp"

#include <utility>

namespace tarsil::detail {

VirtualReactor::VirtualReactor(std::shared_ptr<const VirtualClock> clock) : clock_(std::move(clock)) {}

Work VirtualReactor::takeReadable() {
  const auto first = firstReadable();
  return first ? takeReport(first->id, first->hungUp) : Work();
}

// Asks for all with one call, and for those only that may have something to read. It is poll that is asked:
// it waits for bytes that a terminal has in transit, epoll may miss them.
std::optional<DescriptorSet::Event> VirtualReactor::firstReadable() {
  const std::lock_guard lock(mutex_);
  asked_.clear();
  askedIds_.clear();
  for (const auto& [id, watch] : watches_) {
    if (!watch.armed || (watch.arrivals && !watch.arrivals->mayHaveCome())) continue;
    asked_.push_back({watch.descriptor, POLLIN | POLLRDHUP, 0});
    askedIds_.push_back(id);
  }
  // Only now: several descriptors may share their arrivals.
  for (const WatchId id : askedIds_) {
    if (const auto& arrivals = watches_.at(id).arrivals) arrivals->beginAsking();
  }
  if (asked_.empty() || poll(asked_.data(), asked_.size(), 0) <= 0) return std::nullopt;

  std::optional<DescriptorSet::Event> first;
  for (std::size_t i = 0; i < asked_.size(); ++i) {
    const auto answer = asked_[i].revents;
    if (answer == 0) continue;
    if (!first) first = DescriptorSet::Event{askedIds_[i], (answer & (POLLHUP | POLLERR | POLLRDHUP)) != 0};
    // One chunk is taken at a time, so there may be more behind it.
    if (const auto& arrivals = watches_.at(askedIds_[i]).arrivals) arrivals->announce();
  }
  return first;
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
