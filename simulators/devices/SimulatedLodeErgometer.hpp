#pragma once

#include <string>

#include "simulators/SimulatedDevice.hpp"
#include "simulators/devices/pedalling.hpp"
#include "simulators/physics/Cuff.hpp"
#include "simulators/physics/Pedals.hpp"

namespace tarsil::simulators {

/// A Lode bicycle ergometer, 38400 baud: unit number, comma, two letters, perhaps three characters, carriage
/// return. It has no start command: the pedals turn while a power is set. It answers power ("1,PM") and rate
/// ("1,RM") requests; its driver listens to nothing.
///
/// The three characters of the driver's power command begin or end with what is left of a decimal point, a
/// control character on the wire: such a power cannot be read, and the machine counts it.
class SimulatedLodeErgometer final : public SimulatedDevice {
 public:
  explicit SimulatedLodeErgometer(Patient& patient);

  std::string status() const override;
  Truth truth() const override { return truthOf(pedals_); }
  bool press(Button button) override { return pressOn(pedals_, button); }

 private:
  void onByte(std::uint8_t byte) override;
  void onTime(Duration duration) override;

  void onCommand(const std::string& command);
  void setPower(const std::string& digits);

  std::string received_;
  Pedals pedals_;
  Cuff cuff_;
  int unreadablePowers_ = 0;
};

}  // namespace tarsil::simulators
