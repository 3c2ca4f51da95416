#include "tarsil/serial/detail/PacketListener.hpp"

#include <algorithm>
#include <limits>
#include <utility>

namespace tarsil::detail {

PacketListener::PacketListener(Report report) : report_(std::move(report)) {}

bool PacketListener::start(const Descriptor& descriptor) {
  if (!known_.insert(descriptor.get()).second) return false;
  listened_.push_back({.descriptor = descriptor, .matcher = PacketMatcher::make(descriptor)});
  const std::lock_guard lock(mutex_);
  descriptors_.push_back(descriptor);
  return true;
}

void PacketListener::stop(const ORSSerialPacketDescriptor& descriptor) {
  if (known_.erase(&descriptor) == 0) return;
  std::erase_if(listened_, [&](const Listened& listened) { return *listened.descriptor == descriptor; });
  const std::lock_guard lock(mutex_);
  std::erase_if(descriptors_, [&](const Descriptor& listened) { return *listened == descriptor; });
}

void PacketListener::begin(ByteView chunk) {
  for (Listened& listened : listened_) listened.next = listened.matcher->pass(chunk);
}

std::size_t PacketListener::next() const {
  std::size_t next = std::numeric_limits<std::size_t>::max();
  for (const Listened& listened : listened_) next = std::min(next, listened.next);
  return next;
}

void PacketListener::append(ByteView chunk, std::size_t at) {
  for (Listened& listened : listened_) {
    if (at < listened.next) continue;
    if (auto packet = listened.matcher->append(chunk[at])) report_(*std::move(packet), listened.descriptor);
    listened.next = at + 1 + listened.matcher->pass(chunk.subspan(at + 1));
  }
}

bool PacketListener::isEmpty() const {
  const std::lock_guard lock(mutex_);
  return descriptors_.empty();
}

std::vector<PacketListener::Descriptor> PacketListener::descriptors() const {
  const std::lock_guard lock(mutex_);
  return descriptors_;
}

}  // namespace tarsil::detail
