#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "simulators/SimulatedDevice.hpp"
#include "simulators/lines/Cable.hpp"
#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/Timer.hpp"

namespace tarsil::simulators {

/// A simulated device at the far end of its cable: moves the device's time and carries its bytes, plugged in
/// or not, whether a host listens or not. Main thread.
class CabledDevice {
 public:
  /// `host` gets what arrives there. `device` must outlive this object.
  CabledDevice(SimulatedDevice& device, const CableBehaviour& behaviour, CableWay::End host);
  ~CabledDevice();
  CabledDevice(const CabledDevice&) = delete;
  CabledDevice& operator=(const CabledDevice&) = delete;

  /// What the host has written at once.
  void write(ByteView bytes) { cable_.putCommand(bytes); }
  Cable& cable() { return cable_; }

 private:
  void tick();
  void carryReplies();

  SimulatedDevice& device_;
  Cable cable_;
  std::shared_ptr<Timer> clock_;
  Clock::Instant lastTick_ = Clock::now();
};

}  // namespace tarsil::simulators
