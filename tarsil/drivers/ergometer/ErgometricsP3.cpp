#include "tarsil/drivers/ergometer/ErgometricsP3.hpp"

#include "tarsil/drivers/ergometer/detail/powerDigits.hpp"

namespace tarsil {

void ErgometricsP3::setLoad(float kmph_or_power, float /*grade*/) {
  sendText(powerDigits(kmph_or_power) + "\r");
}

void ErgometricsP3::requestLoad() {
  sendText("W\r");
  sendText("D\r");
}

// Twice, where the P10 ergometers take three.
void ErgometricsP3::stopStressDevice() {
  for (int i = 0; i < 2; ++i) sendText("F\r");
}

void ErgometricsP3::startBP() {
  isBPCommand = true;
  sendText("S\r");
  sendText("U\r");
}

}  // namespace tarsil
