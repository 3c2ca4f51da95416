#pragma once

#include "simulators/SimulatedDevice.hpp"
#include "simulators/physics/Belt.hpp"

namespace tarsil::simulators {

/// A Lode treadmill in terminal mode, 38400 baud. It checks every frame (STX, code, length, data, CRC, ETX),
/// answers it, and moves its belt and grade as fast as such a machine does. Refusal codes are its status
/// bytes. Stopped at the machine it answers start, speed and elevation with the statuses of an emergency
/// stop.
class SimulatedLodeTreadmill final : public SimulatedDevice {
 public:
  explicit SimulatedLodeTreadmill(Patient& patient);

  std::string status() const override;
  Truth truth() const override;
  bool press(Button button) override;
  bool release(Button button) override;
  bool stopWhenUnheard(bool stops) override;
  std::vector<std::string> refusalCodes() const override { return {"01", "02", "03", "04", "08", "40"}; }

 private:
  void onByte(std::uint8_t byte) override;
  void onTime(Duration duration) override;

  bool frameIsComplete() const;
  void onFrame();
  /// False for what the machine refuses while it is held.
  bool obey(std::uint8_t command, std::uint8_t value);
  void answer(std::uint8_t command);
  void answerWith(std::uint8_t command, std::uint8_t status, ByteView data);

  Bytes frame_;
  /// Tenths of km/h, tenths of a percent.
  Belt belt_;
  bool stopsWhenUnheard_ = false;
  Duration sinceLastCommand_{};
};

}  // namespace tarsil::simulators
