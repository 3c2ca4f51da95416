#pragma once

#include "simulators/SimulatedDevice.hpp"
#include "simulators/physics/Ramp.hpp"

namespace tarsil::simulators {

/// A Lode treadmill in terminal mode, 38400 baud. It checks every frame (STX, code, length, data, CRC, ETX),
/// answers it, and moves its belt and grade as fast as such a machine does. Refusal codes are its status
/// bytes.
class SimulatedLodeTreadmill final : public SimulatedDevice {
 public:
  explicit SimulatedLodeTreadmill(Patient& patient);

  std::string status() const override;
  std::vector<std::string> refusalCodes() const override { return {"01", "02", "03", "04", "08", "40"}; }

 private:
  void onByte(std::uint8_t byte) override;
  void onTime(Duration duration) override;

  bool frameIsComplete() const;
  void onFrame();
  void obey(std::uint8_t command, std::uint8_t value);
  void answer(std::uint8_t command);
  void answerWith(std::uint8_t command, std::uint8_t status, ByteView data);

  Bytes frame_;
  Ramp speed_;  // tenths of km/h
  Ramp grade_;  // tenths of a percent
  bool running_ = false;
  double wantedSpeed_ = 0.0;
};

}  // namespace tarsil::simulators
