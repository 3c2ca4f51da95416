#include "simulators/devices/SimulatedP10Ergometer.hpp"

#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

#include "simulators/physics/Patient.hpp"
#include "tarsil/support/numberText.hpp"

namespace tarsil::simulators {

SimulatedP10Ergometer::SimulatedP10Ergometer(std::string model, std::string startCommand, Patient& patient)
    : SimulatedDevice(std::move(model), 4800, patient),
      startCommand_(std::move(startCommand)),
      cuff_(patient) {}

std::string SimulatedP10Ergometer::status() const {
  std::array<char, 120> text{};
  std::snprintf(text.data(), text.size(), "pedals %s, %.0f W, cuff %s, last pressure %d/%d mmHg",
                pedals_.isRunning() ? "turning" : "still", pedals_.power(),
                cuff_.isMeasuring() ? "measuring" : "at rest", cuff_.lastReading().systolic,
                cuff_.lastReading().diastolic);
  return text.data();
}

void SimulatedP10Ergometer::onByte(std::uint8_t byte) {
  if (byte != '\r') {
    received_.push_back(static_cast<char>(byte));
    return;
  }
  onCommand(received_);
  lastCommand_ = std::exchange(received_, {});
}

void SimulatedP10Ergometer::onCommand(const std::string& command) {
  if (command == startCommand_) pedals_.start();
  if (command == "F") pedals_.stop();
  if (command == "D") answer('n', pedals_.rate(random()));
  if (command == "B") answer('B', static_cast<int>(std::lround(pedals_.power())));
  if (command == "O") answer('O', cuff_.lastReading().systolic);
  if (command == "U") {
    answer('U', cuff_.lastReading().diastolic);
    if (lastCommand_ == "S") cuff_.start();
  }
  if (command.ends_with('W')) {
    if (const auto power = readInteger(command.substr(0, command.size() - 1))) {
      pedals_.setPower(static_cast<double>(*power));
    }
  }
}

void SimulatedP10Ergometer::answer(char field, int value) {
  std::array<char, 16> text{};
  const int size = std::snprintf(text.data(), text.size(), "%c%03d\r", field, value);
  sendInOnePiece(Bytes(text.begin(), text.begin() + size));
}

void SimulatedP10Ergometer::onTime(Duration duration) {
  pedals_.advance(duration);
  cuff_.advance(duration);
  patient().cycle(pedals_.power());
}

}  // namespace tarsil::simulators
