#include "simulators/devices/SimulatedErgometricsP3.hpp"

#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

#include "simulators/physics/Patient.hpp"
#include "tarsil/support/numberText.hpp"

namespace tarsil::simulators {
namespace {

std::string reply(char field, int value) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%c%03d\r", field, value);
  return text.data();
}

}  // namespace

SimulatedErgometricsP3::SimulatedErgometricsP3(Patient& patient)
    : SimulatedDevice("ErgometricsK2.4P3", 4800, patient), cuff_(patient) {}

std::string SimulatedErgometricsP3::status() const {
  std::array<char, 80> text{};
  std::snprintf(text.data(), text.size(), "pedals %s, %.0f W, cuff %s",
                pedals_.isRunning() ? "turning" : "still", pedals_.power(),
                cuff_.isMeasuring() ? "measuring" : "at rest");
  return text.data();
}

void SimulatedErgometricsP3::onByte(std::uint8_t byte) {
  if (byte != '\r') {
    received_.push_back(static_cast<char>(byte));
    return;
  }
  onCommand(received_);
  lastCommand_ = std::exchange(received_, {});
}

void SimulatedErgometricsP3::onCommand(const std::string& command) {
  if (command == "S") pedals_.start();
  if (command == "F") pedals_.stop();
  if (command == "W") send(reply('W', static_cast<int>(std::lround(pedals_.power()))));
  if (command == "D") send(reply('D', pedals_.rate(random())));
  if (command == "O") send(reply('O', cuff_.lastReading().systolic));
  if (command == "U") {
    send(reply('U', cuff_.lastReading().diastolic));
    if (lastCommand_ == "S") cuff_.start();
  }
  if (const auto power = readInteger(command)) pedals_.setPower(static_cast<double>(*power));
}

void SimulatedErgometricsP3::onTime(Duration duration) {
  pedals_.advance(duration);
  cuff_.advance(duration);
  patient().cycle(pedals_.power());
}

}  // namespace tarsil::simulators
