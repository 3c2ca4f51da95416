#pragma once

#include "simulators/SimulatedDevice.hpp"
#include "simulators/physics/Belt.hpp"

namespace tarsil::simulators {

/// An OEM Lode treadmill, 19200 baud. Frames begin with AC 01. A request (0A) is answered with fourteen
/// bytes: code at position 2, speed in tenths of km/h at 8 and 9, grade in percent at 10 and 11, then two
/// check bytes that are zero, because its driver counts no two-digit byte in the sum. Other frames get no
/// answer, but while the belt is held at the machine start and load are answered with EF. A target with a
/// one- or three-digit value shifts every byte of the driver's frame: the machine cannot read it, counts it
/// and keeps its load.
///
/// The driver keeps every byte it ever received and reads positions counted from the first one, so the first
/// answer of a connection is what it reports ever after; later answers only make it repeat that. It looks
/// whenever two zero bytes follow each other, and stops its process when it looks before the grade has come:
/// the machine never reports a speed of exactly zero, but 0.1 km/h. The refusal EF is heard only when it
/// answers the first request.
class SimulatedLodeOEMTreadmill final : public SimulatedDevice {
 public:
  explicit SimulatedLodeOEMTreadmill(Patient& patient);

  std::string status() const override;
  Truth truth() const override;
  bool press(Button button) override;
  std::vector<std::string> refusalCodes() const override { return {"EF"}; }

 private:
  void onByte(std::uint8_t byte) override;
  void onTime(Duration duration) override;

  std::size_t expectedSize() const;
  void onFrame();
  void answer(std::uint8_t code);

  Bytes frame_;
  /// Tenths of km/h, percent.
  Belt belt_;
  int unreadableBytes_ = 0;
};

}  // namespace tarsil::simulators
