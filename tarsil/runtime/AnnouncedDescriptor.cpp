#include "tarsil/runtime/AnnouncedDescriptor.hpp"

#include <map>
#include <mutex>

#include "tarsil/runtime/detail/Arrivals.hpp"

namespace tarsil {
namespace {

std::mutex mutex;

std::map<int, std::shared_ptr<detail::Arrivals>>& announced() {
  // Never destroyed: worker threads may close lines until the very end of the process.
  static auto& descriptors = *new std::map<int, std::shared_ptr<detail::Arrivals>>;
  return descriptors;
}

}  // namespace

AnnouncedDescriptor::AnnouncedDescriptor(int descriptor)
    : descriptor_(descriptor), arrivals_(std::make_shared<detail::Arrivals>()) {
  const std::lock_guard lock(mutex);
  announced()[descriptor_] = arrivals_;
}

AnnouncedDescriptor::~AnnouncedDescriptor() {
  {
    const std::lock_guard lock(mutex);
    announced().erase(descriptor_);
  }
  arrivals_->becomeUnknown();
}

void AnnouncedDescriptor::announce() {
  arrivals_->announce();
}

std::shared_ptr<detail::Arrivals> detail::Arrivals::announcedFor(int descriptor) {
  const std::lock_guard lock(mutex);
  const auto entry = announced().find(descriptor);
  return entry == announced().end() ? nullptr : entry->second;
}

}  // namespace tarsil
