#pragma once

#include <string>

#include "simulators/SimulatedDevice.hpp"
#include "simulators/devices/pedalling.hpp"
#include "simulators/physics/Cuff.hpp"
#include "simulators/physics/Pedals.hpp"

namespace tarsil::simulators {

/// An Ergometrics bicycle ergometer of the P3 protocol, 4800 baud: three digits and a carriage return set the
/// power, "S" starts, "F" stops, "W" and "D" ask for power and pedal rate, "O" and "U" for the pressure. It
/// answers; its driver listens to nothing.
class SimulatedErgometricsP3 final : public SimulatedDevice {
 public:
  explicit SimulatedErgometricsP3(Patient& patient);

  std::string status() const override;
  Truth truth() const override { return truthOf(pedals_); }
  bool press(Button button) override { return pressOn(pedals_, button); }

 private:
  void onByte(std::uint8_t byte) override;
  void onTime(Duration duration) override;

  void onCommand(const std::string& command);

  std::string received_;
  std::string lastCommand_;
  Pedals pedals_;
  Cuff cuff_;
};

}  // namespace tarsil::simulators
