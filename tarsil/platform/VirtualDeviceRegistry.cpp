#include "tarsil/platform/VirtualDeviceRegistry.hpp"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <stdexcept>
#include <utility>
#include <vector>

#include "tarsil/platform/detail/serialDeviceAt.hpp"
#include "tarsil/runtime/RunLoop.hpp"

namespace tarsil {

struct VirtualDeviceRegistry::State {
  struct Watch {
    std::function<void(Work)> perform;
    Watcher watcher;
    std::atomic<bool> ended = false;
  };
  using News = std::function<void(const Devices&)> Watcher::*;

  // Called under the lock.
  Devices::iterator find(std::string_view calloutPath) {
    return std::find_if(devices.begin(), devices.end(),
                        [=](const auto& device) { return device->calloutPath == calloutPath; });
  }

  // Called under the lock, so that every watcher hears of the changes in their order.
  void tell(News news, const std::shared_ptr<const SerialDevice>& device) {
    for (const auto& watch : watches) {
      watch->perform([watch, news, device] {
        const auto& hear = watch->watcher.*news;
        if (hear && !watch->ended) hear({device});
      });
    }
  }

  std::mutex mutex;
  Devices devices;
  std::vector<std::shared_ptr<Watch>> watches;
};

VirtualDeviceRegistry::VirtualDeviceRegistry() : state_(std::make_shared<State>()) {}

VirtualDeviceRegistry::~VirtualDeviceRegistry() = default;

std::shared_ptr<VirtualDeviceRegistry> VirtualDeviceRegistry::shared() {
  static const auto registry = std::make_shared<VirtualDeviceRegistry>();
  return registry;
}

void VirtualDeviceRegistry::add(std::shared_ptr<const SerialDevice> device) {
  if (!device) throw std::invalid_argument("a virtual device must not be null");
  const std::lock_guard lock(state_->mutex);
  if (device->calloutPath && state_->find(*device->calloutPath) != state_->devices.end())
    throw std::invalid_argument("there is a virtual device at " + *device->calloutPath + " already");
  state_->devices.push_back(std::move(device));
  state_->tell(&Watcher::arrived, state_->devices.back());
}

void VirtualDeviceRegistry::add(std::string path, std::string terminalName) {
  add(std::make_shared<SerialDevice>(detail::serialDeviceAt(std::move(path), std::move(terminalName))));
}

bool VirtualDeviceRegistry::remove(std::string_view calloutPath) {
  const std::lock_guard lock(state_->mutex);
  const auto entry = state_->find(calloutPath);
  if (entry == state_->devices.end()) return false;
  const auto device = *entry;
  state_->devices.erase(entry);
  state_->tell(&Watcher::removed, device);
  return true;
}

SerialDeviceRegistry::Devices VirtualDeviceRegistry::devices() {
  const std::lock_guard lock(state_->mutex);
  return state_->devices;
}

Observation VirtualDeviceRegistry::watch(Watcher watcher) {
  auto watch = std::make_shared<State::Watch>();
  watch->perform = RunLoop::current().performer();
  watch->watcher = std::move(watcher);
  const std::lock_guard lock(state_->mutex);
  state_->watches.push_back(watch);
  return Observation([state = std::weak_ptr(state_), watch] {
    watch->ended = true;
    const auto still = state.lock();
    if (!still) return;
    const std::lock_guard stillLock(still->mutex);
    std::erase(still->watches, watch);
  });
}

}  // namespace tarsil
