#include "simulators/devices/SimulatedLodeErgometer.hpp"

#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

#include "simulators/physics/Patient.hpp"
#include "tarsil/support/numberText.hpp"

namespace tarsil::simulators {

SimulatedLodeErgometer::SimulatedLodeErgometer(Patient& patient)
    : SimulatedDevice("Ergometer38K4", 38400, patient), cuff_(patient) {}

std::string SimulatedLodeErgometer::status() const {
  std::array<char, 120> text{};
  std::snprintf(text.data(), text.size(), "pedals %s, %.0f W, cuff %s, unreadable powers %d",
                pedals_.isRunning() ? "turning" : "still", pedals_.power(),
                cuff_.isMeasuring() ? "measuring" : "at rest", unreadablePowers_);
  return text.data();
}

void SimulatedLodeErgometer::onByte(std::uint8_t byte) {
  if (byte != '\r') {
    received_.push_back(static_cast<char>(byte));
    return;
  }
  onCommand(std::exchange(received_, {}));
}

void SimulatedLodeErgometer::onCommand(const std::string& command) {
  if (command == "1,PM") send("1,PM" + std::to_string(std::lround(pedals_.power())) + "\r");
  if (command == "1,RM") send("1,RM" + std::to_string(pedals_.rate(random())) + "\r");
  if (command == "1,BS") cuff_.start();
  if (command == "1,BQ") cuff_.abort();
  if (command == "1,BR") send("1,BR" + std::to_string(cuff_.lastReading().systolic) + "\r");
  if (command.starts_with("1,SP")) setPower(command.substr(4));
}

void SimulatedLodeErgometer::setPower(const std::string& digits) {
  const auto power = readInteger(digits);
  if (!power) {
    ++unreadablePowers_;
    return;
  }
  pedals_.setPower(static_cast<double>(*power));
  if (*power > 0) {
    pedals_.start();
  } else {
    pedals_.stop();
  }
}

void SimulatedLodeErgometer::onTime(Duration duration) {
  pedals_.advance(duration);
  cuff_.advance(duration);
  patient().cycle(pedals_.power());
}

}  // namespace tarsil::simulators
