#pragma once

#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "tarsil/platform/SerialDevice.hpp"
#include "tarsil/runtime/Observation.hpp"

namespace tarsil {

/// The serial devices that are present, and the news of arriving and vanishing ones.
class SerialDeviceRegistry {
 public:
  using Devices = std::vector<std::shared_ptr<const SerialDevice>>;

  /// Called with the devices of one piece of news.
  struct Watcher {
    std::function<void(const Devices&)> arrived;
    std::function<void(const Devices&)> removed;
  };

  virtual ~SerialDeviceRegistry() = default;

  /// The devices present now, in the registry's order. Any thread.
  virtual Devices devices() = 0;

  /// Calls the watcher on the calling thread's run loop until the observation is dropped (on the same
  /// thread).
  [[nodiscard]] virtual Observation watch(Watcher watcher) = 0;

  /// The first device whose call-out or dial-in path is `path`; null when there is none or `path` is empty.
  std::shared_ptr<const SerialDevice> deviceFromBSDPath(std::string_view path);

  /// The registry that ports are looked up in: the system's devices, then the virtual ones of
  /// `VirtualDeviceRegistry::shared()`, unless a program put another one in its place.
  static std::shared_ptr<SerialDeviceRegistry> shared();
  /// Puts another registry in its place (null: the default) and hands back the old one (null: the default).
  /// Call it before the first use of `ORSSerialPortManager`, while no other thread runs library code.
  static std::shared_ptr<SerialDeviceRegistry> exchangeShared(std::shared_ptr<SerialDeviceRegistry> registry);
};

}  // namespace tarsil
