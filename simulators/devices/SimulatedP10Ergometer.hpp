#pragma once

#include <string>

#include "simulators/SimulatedDevice.hpp"
#include "simulators/devices/pedalling.hpp"
#include "simulators/physics/Cuff.hpp"
#include "simulators/physics/Pedals.hpp"

namespace tarsil::simulators {

/// A bicycle ergometer of the P10 protocol with its own blood-pressure unit, 4800 baud: ASCII commands that
/// end in a carriage return. "D" is answered with the pedal rate ("n060"), "B" with the power ("B120"), "O"
/// and "U" with the last systolic and diastolic pressure ("O120", "U080"; zeros before the first reading).
/// "S" followed by "U" starts a measurement, which takes 20 to 40 s.
///
/// An answer arrives in one piece: its driver reports anew with every piece that it hears.
///
/// The machine never speaks unasked, although some of its kind do: a reply that ends between a host's "S" and
/// the answer to its "U" would stop the host's process.
class SimulatedP10Ergometer : public SimulatedDevice {
 public:
  std::string status() const override;
  Truth truth() const override { return truthOf(pedals_); }
  bool press(Button button) override { return pressOn(pedals_, button); }

 protected:
  SimulatedP10Ergometer(std::string model, std::string startCommand, Patient& patient);

 private:
  void onByte(std::uint8_t byte) override;
  void onTime(Duration duration) override;

  void onCommand(const std::string& command);
  void answer(char field, int value);

  const std::string startCommand_;
  std::string received_;
  std::string lastCommand_;
  Pedals pedals_;
  Cuff cuff_;
};

/// Starts the exercise with "s".
class SimulatedErgolineP10 final : public SimulatedP10Ergometer {
 public:
  explicit SimulatedErgolineP10(Patient& patient) : SimulatedP10Ergometer("ErgolineK2.4P10", "s", patient) {}
};

/// Starts the exercise with "S", which also begins the start of a measurement.
class SimulatedErgosanaP10 final : public SimulatedP10Ergometer {
 public:
  explicit SimulatedErgosanaP10(Patient& patient) : SimulatedP10Ergometer("ErgosanaK4.8P10", "S", patient) {}
};

}  // namespace tarsil::simulators
