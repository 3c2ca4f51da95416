#pragma once

#include <string>

#include "simulators/SimulatedDevice.hpp"
#include "simulators/physics/Cuff.hpp"

namespace tarsil::simulators {

/// A Tango blood-pressure monitor, 9600 baud: commands and replies are ASCII groups that end in line feed and
/// carriage return. INIT is answered with four groups. STRT measures for 20 to 40 s,
/// then sends the record; DATA sends the last record again, STOP ends a measurement, CLRR forgets the record.
///
/// The record consists of a number and a letter, systolic, diastolic and mean pressure. The reader takes it
/// only when nothing else was received since the last record, so no command is echoed.
class SimulatedTango final : public SimulatedDevice {
 public:
  explicit SimulatedTango(Patient& patient);

  std::string status() const override;

 private:
  void onByte(std::uint8_t byte) override;
  void onTime(Duration duration) override;

  void onCommand(const std::string& command);
  void sendRecord();

  std::string received_;
  Cuff cuff_;
  int readings_ = 0;
};

}  // namespace tarsil::simulators
