#include "tarsil/platform/linux/KnownDevices.hpp"

#include <algorithm>
#include <utility>

namespace tarsil {
namespace {

auto find(std::vector<FoundDevice>& devices, const std::string& systemPath) {
  return std::find_if(devices.begin(), devices.end(),
                      [&](const FoundDevice& device) { return device.systemPath == systemPath; });
}

bool isPresent(const FoundDevice& known, const std::vector<FoundDevice>& present) {
  return std::any_of(present.begin(), present.end(),
                     [&](const FoundDevice& device) { return device.systemPath == known.systemPath; });
}

void append(KnownDevices::News& all, const KnownDevices::News& more) {
  all.removed.insert(all.removed.end(), more.removed.begin(), more.removed.end());
  all.arrived.insert(all.arrived.end(), more.arrived.begin(), more.arrived.end());
}

}  // namespace

KnownDevices::News KnownDevices::add(FoundDevice device) {
  News news;
  const auto known = find(devices_, device.systemPath);
  if (known == devices_.end()) {
    news.arrived.push_back(device.device);
    devices_.push_back(std::move(device));
    return news;
  }
  if (known->device->usb == device.device->usb) return news;
  news.removed.push_back(known->device);
  news.arrived.push_back(device.device);
  *known = std::move(device);
  return news;
}

KnownDevices::News KnownDevices::remove(const std::string& systemPath) {
  News news;
  const auto known = find(devices_, systemPath);
  if (known == devices_.end()) return news;
  news.removed.push_back(known->device);
  devices_.erase(known);
  return news;
}

KnownDevices::News KnownDevices::replace(const std::vector<FoundDevice>& present) {
  News news;
  const std::vector<FoundDevice> before = devices_;
  for (const FoundDevice& known : before) {
    if (!isPresent(known, present)) append(news, remove(known.systemPath));
  }
  for (const FoundDevice& device : present) append(news, add(device));
  return news;
}

}  // namespace tarsil
