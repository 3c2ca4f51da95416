#include "tarsil/serial/detail/LivePorts.hpp"

#include <utility>

namespace tarsil::detail {

LivePorts& LivePorts::shared() {
  // Never destroyed: a port may be released as late as any static object.
  static LivePorts& ports = *new LivePorts;
  return ports;
}

void LivePorts::add(const std::shared_ptr<ORSSerialPort>& port) {
  const std::lock_guard lock(mutex_);
  entries_.push_back({port.get(), port});
}

void LivePorts::remove(const ORSSerialPort* port) {
  const std::lock_guard lock(mutex_);
  std::erase_if(entries_, [&](const Entry& entry) { return entry.port == port; });
}

std::vector<std::shared_ptr<ORSSerialPort>> LivePorts::all() const {
  std::vector<std::shared_ptr<ORSSerialPort>> ports;
  const std::lock_guard lock(mutex_);
  for (const Entry& entry : entries_) {
    if (auto port = entry.reference.lock()) ports.push_back(std::move(port));
  }
  return ports;
}

}  // namespace tarsil::detail
