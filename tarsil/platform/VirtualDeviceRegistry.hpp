#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "tarsil/platform/SerialDeviceRegistry.hpp"

namespace tarsil {

/// Devices that the program itself adds and removes: simulated devices become ports that the host can choose.
/// Watchers hear of each change on the run loop of the thread that began to watch. Any thread.
class VirtualDeviceRegistry final : public SerialDeviceRegistry {
 public:
  VirtualDeviceRegistry();
  ~VirtualDeviceRegistry() override;

  static std::shared_ptr<VirtualDeviceRegistry> shared();

  /// Adds the device as the last one. Throws std::invalid_argument for null, and for a call-out path that
  /// another of the devices has: ports are told apart by it.
  void add(std::shared_ptr<const SerialDevice> device);
  /// Adds the terminal at `path` (a pseudo-terminal's, say) under the given name, opened as the system's own
  /// are. Throws like the other one.
  void add(std::string path, std::string terminalName);
  /// Removes the device with this call-out path; false when there is none.
  bool remove(std::string_view calloutPath);

  Devices devices() override;
  [[nodiscard]] Observation watch(Watcher watcher) override;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace tarsil
