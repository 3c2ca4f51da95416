#pragma once

#include "simulators/SimulatedDevice.hpp"
#include "simulators/physics/Belt.hpp"

namespace tarsil::simulators {

/// A TrackMaster treadmill, 4800 baud: one command byte, values as ASCII digits (speed in tenths of a mile
/// per hour, grade in tenths of a percent). Commands are acknowledged with B1 to B4, requests answered with
/// D1 and D2. Held at the machine it answers start, speed and grade with BF. Refusal codes are "BE" (beyond
/// the limit) and "BF" (disabled).
///
/// Its driver never returns from a byte that is no code of the protocol, so noise makes a host hang, as it
/// would with the real machine.
class SimulatedTrackMaster final : public SimulatedDevice {
 public:
  explicit SimulatedTrackMaster(Patient& patient);

  std::string status() const override;
  Truth truth() const override;
  bool press(Button button) override;
  std::vector<std::string> refusalCodes() const override { return {"BE", "BF"}; }

 private:
  void onByte(std::uint8_t byte) override;
  void onTime(Duration duration) override;

  void onCommand();
  /// False for what the machine refuses while it is held.
  bool obey(std::uint8_t command, int value);
  void report(std::uint8_t code, double tenths);

  Bytes command_;
  /// Tenths of a mile per hour, tenths of a percent.
  Belt belt_;
};

}  // namespace tarsil::simulators
