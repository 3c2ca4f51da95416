#pragma once

#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tools/tarsil/replay/SeenDevices.hpp"
#include "tools/tarsil/replay/StationPorts.hpp"
#include "tools/tarsil/replay/Subject.hpp"

namespace tarsil::cli {

/// The shared manager with real drivers on scripted ports.
class StationSubject final : public Subject {
 public:
  /// `manager` is as after its construction.
  StationSubject(ReplayWorld world, StressECGDeviceManager& manager, StationPorts& ports);

  void perform(const Operation& operation) override;

 private:
  bool performHostOperation(const Operation& operation);
  bool performPortCall(const Operation& operation);

  void receive(const Operation& operation);
  void setClosures(const Operation& operation);
  void setDeviceDelegate(const Operation& operation);
  void setPeripheral(const Operation& operation);

  ReplayWorld world_;
  StressECGDeviceManager& manager_;
  StationPorts& ports_;
  /// Whose name nobody has chosen: what the manager's own port callbacks are called with.
  std::shared_ptr<ORSSerialPort> anyPort_;
  SeenDevices seen_;
};

}  // namespace tarsil::cli
