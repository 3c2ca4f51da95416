#pragma once

#include "simulators/SimulatedDevice.hpp"
#include "simulators/physics/Belt.hpp"

namespace tarsil::simulators {

/// A TM-400 V2 treadmill, 4800 baud: seven-byte frames with an additive check byte. It never answers.
///
/// Below 1.6 km/h and from 18.7 km/h on, the driver's frames have an odd number of hexadecimal digits, which
/// shifts every byte: the machine cannot read them, counts them and keeps its speed.
class SimulatedTM400 final : public SimulatedDevice {
 public:
  explicit SimulatedTM400(Patient& patient);

  std::string status() const override;
  Truth truth() const override;
  bool press(Button button) override;

 private:
  void onByte(std::uint8_t byte) override;
  void onTime(Duration duration) override;

  void onFrame();

  Bytes frame_;
  Duration sinceLastByte_{};
  /// Tenths of km/h, percent.
  Belt belt_;
  int unreadableBytes_ = 0;
};

}  // namespace tarsil::simulators
