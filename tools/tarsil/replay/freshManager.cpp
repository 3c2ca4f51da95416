#include "tools/tarsil/replay/freshManager.hpp"

namespace tarsil::cli {

StressECGDeviceManager& freshManager() {
  auto& manager = StressECGDeviceManager::share();
  if (manager.timer) manager.timer->invalidate();
  manager.delegate = nullptr;
  manager.ports.reset();
  manager.devices.clear();
  manager.devicePort = nullptr;
  manager.BPPort = nullptr;
  manager.SpO2Port = nullptr;
  manager.currentDevice = nullptr;
  manager.BPD = nullptr;
  manager.SpO2D = nullptr;
  manager.SpO2Devices.clear();
  manager.portNames.clear();
  manager.getPortsName = nullptr;
  manager.portNamesWithSpO2.clear();
  manager.getPortsNameWithSpO2 = nullptr;
  manager.isTango = false;
  manager.timer = nullptr;
  manager.btManager = nullptr;
  manager.peripheral = nullptr;
  manager.getPortIsSpO2 = false;
  return manager;
}

}  // namespace tarsil::cli
