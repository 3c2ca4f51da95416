#include "simulators/devices/SimulatedMEDXINGOximeter.hpp"

#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "simulators/devices/medxingFrame.hpp"
#include "simulators/physics/Patient.hpp"

namespace tarsil::simulators {
namespace {

using namespace std::chrono_literals;

constexpr Duration frameInterval = 1s;

}  // namespace

SimulatedMEDXINGOximeter::SimulatedMEDXINGOximeter(Patient& patient)
    : SimulatedDevice("MEDXINGPort", 9600, patient), untilNextFrame_(frameInterval) {}

std::string SimulatedMEDXINGOximeter::status() const {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "saturation %d %%", saturation_);
  return text.data();
}

void SimulatedMEDXINGOximeter::onByte(std::uint8_t /*byte*/) {}

void SimulatedMEDXINGOximeter::onTime(Duration duration) {
  untilNextFrame_ -= duration;
  while (untilNextFrame_ <= Duration::zero()) {
    untilNextFrame_ += frameInterval;
    sendFrame();
  }
}

void SimulatedMEDXINGOximeter::sendFrame() {
  // Now and then the finger moves a little.
  const int noise = random() % 8 == 0 ? -1 : 0;
  saturation_ = static_cast<int>(std::lround(patient().oxygenSaturation())) + noise;
  const auto pulse = static_cast<std::uint8_t>(std::lround(patient().heartRate()));
  sendInOnePiece(medxingFrame(static_cast<std::uint8_t>(saturation_), pulse));
}

}  // namespace tarsil::simulators
