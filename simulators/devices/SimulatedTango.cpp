#include "simulators/devices/SimulatedTango.hpp"

#include <array>
#include <cstdio>
#include <utility>

#include "simulators/physics/Patient.hpp"

namespace tarsil::simulators {

SimulatedTango::SimulatedTango(Patient& patient) : SimulatedDevice("Tango", 9600, patient), cuff_(patient) {}

std::string SimulatedTango::status() const {
  std::array<char, 100> text{};
  std::snprintf(text.data(), text.size(), "cuff %s, reading %d: %d/%d mmHg",
                cuff_.isMeasuring() ? "measuring" : "at rest", readings_, cuff_.lastReading().systolic,
                cuff_.lastReading().diastolic);
  return text.data();
}

void SimulatedTango::onByte(std::uint8_t byte) {
  if (byte == '\n') return;
  if (byte != '\r') {
    received_.push_back(static_cast<char>(byte));
    return;
  }
  onCommand(std::exchange(received_, {}));
}

void SimulatedTango::onCommand(const std::string& command) {
  if (command == "INIT") send("INITR\n\r00000\n\r00000\n\r00000\n\r");
  if (command == "STRT") cuff_.start();
  if (command == "STOP") cuff_.abort();
  if (command == "CLRR") cuff_.clear();
  if (command == "DATA") sendRecord();
}

void SimulatedTango::sendRecord() {
  const PressureReading& reading = cuff_.lastReading();
  const int mean = (reading.systolic + 2 * reading.diastolic) / 3;
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%03dA\n\r+%04d\n\r+%04d\n\r+%04d\n\r", readings_, reading.systolic,
                reading.diastolic, mean);
  send(std::string_view(text.data()));
}

void SimulatedTango::onTime(Duration duration) {
  if (!cuff_.advance(duration)) return;
  ++readings_;
  sendRecord();
}

}  // namespace tarsil::simulators
