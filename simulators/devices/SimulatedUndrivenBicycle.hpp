#pragma once

#include <string>

#include "simulators/SimulatedDevice.hpp"

namespace tarsil::simulators {

/// A bicycle that no software drives: it only counts what it hears, which is nothing.
class SimulatedUndrivenBicycle final : public SimulatedDevice {
 public:
  explicit SimulatedUndrivenBicycle(Patient& patient) : SimulatedDevice("KivBicycle", 38400, patient) {}

  std::string status() const override { return "heard " + std::to_string(heard_) + " bytes"; }

 private:
  void onByte(std::uint8_t /*byte*/) override { ++heard_; }
  void onTime(Duration /*duration*/) override {}

  int heard_ = 0;
};

}  // namespace tarsil::simulators
