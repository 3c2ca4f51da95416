#include "tarsil/serial/detail/PacketListener.hpp"

#include <algorithm>
#include <utility>

namespace tarsil::detail {

PacketListener::PacketListener(Report report) : report_(std::move(report)) {}

bool PacketListener::start(const Descriptor& descriptor) {
  const auto isThis = [&](const Listened& listened) { return *listened.descriptor == *descriptor; };
  if (std::any_of(listened_.begin(), listened_.end(), isThis)) return false;
  listened_.push_back({descriptor, PacketMatcher::make(descriptor)});
  const std::lock_guard lock(mutex_);
  descriptors_.push_back(descriptor);
  return true;
}

void PacketListener::stop(const ORSSerialPacketDescriptor& descriptor) {
  std::erase_if(listened_, [&](const Listened& listened) { return *listened.descriptor == descriptor; });
  const std::lock_guard lock(mutex_);
  std::erase_if(descriptors_, [&](const Descriptor& listened) { return *listened == descriptor; });
}

void PacketListener::append(std::uint8_t byte) {
  for (const Listened& listened : listened_) {
    if (auto packet = listened.matcher->append(byte)) report_(*std::move(packet), listened.descriptor);
  }
}

std::vector<PacketListener::Descriptor> PacketListener::descriptors() const {
  const std::lock_guard lock(mutex_);
  return descriptors_;
}

}  // namespace tarsil::detail
