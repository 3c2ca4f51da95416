#pragma once

#include "simulators/SimulatedDevice.hpp"

namespace tarsil::simulators {

/// A MEDXING pulse oximeter on a serial line, 9600 baud: it sends a frame of twelve bytes every second and
/// listens to nothing. Bytes 4 and 5 are 23 95, byte 8 is the saturation in percent, byte 9 the pulse. Its
/// reader takes a frame only in one piece.
class SimulatedMEDXINGOximeter final : public SimulatedDevice {
 public:
  explicit SimulatedMEDXINGOximeter(Patient& patient);

  std::string status() const override;

 private:
  void onByte(std::uint8_t byte) override;
  void onTime(Duration duration) override;

  void sendFrame();

  Duration untilNextFrame_;
  int saturation_ = 0;
};

}  // namespace tarsil::simulators
