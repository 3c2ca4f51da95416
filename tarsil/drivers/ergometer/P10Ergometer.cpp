#include "tarsil/drivers/ergometer/P10Ergometer.hpp"

#include <chrono>
#include <utility>

#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/drivers/ergometer/detail/powerDigits.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil {
namespace {

constexpr Duration secondCommandDelay = std::chrono::milliseconds(100);
constexpr std::int64_t measured = 0;

}  // namespace

void P10Ergometer::setLoad(float kmph_or_power, float /*grade*/) {
  sendText(powerDigits(kmph_or_power) + "W\r");
}

void P10Ergometer::requestLoad() {
  sendText("D\r");
  sendTextLater("B\r");
}

// Three times, although one would do where no byte is lost.
void P10Ergometer::stopStressDevice() {
  for (int i = 0; i < 3; ++i) sendText("F\r");
}

void P10Ergometer::startBP() {
  isBPCommand = true;
  sendText("S\r");
  sendTextLater("U\r");
}

void P10Ergometer::breakBP() {}

void P10Ergometer::requestBP() {
  sendText("O\r");
}

bool P10Ergometer::setBPValue(std::string_view key, float value) {
  if (key == "O") p10SBP = value;
  if (key == "U") p10DBP = value;
  return p10SBP && p10DBP;
}

// Both pressures come from the start of the text, whichever marker was found: when they share a text, they
// are equal. `isBPCommand` stays true behind a report, so that the next reply must bring both again.
void P10Ergometer::processPressure() {
  if (result.contains('O')) isBPCommand = setBPValue("O", result.numberOrStop());
  if (result.contains('U')) isBPCommand = setBPValue("U", result.numberOrStop());
  if (!isBPCommand) return;
  // Also reached when a measurement was started and some other reply ends before its pressures have come.
  if (!p10SBP || !p10DBP) fatalError("P10 ergometer: a reply arrived before both blood pressures");
  const auto& host = StressECGDeviceManager::share().delegate;
  host.onReceivedBPWithSysBP(*p10SBP, *p10DBP, measured);
  p10SBP.reset();
  p10DBP.reset();
}

// The timer holds the driver; the port is the one that the driver has when the timer fires.
void P10Ergometer::sendTextLater(std::string text) {
  auto self = std::static_pointer_cast<P10Ergometer>(shared_from_this());
  Timer::scheduled(secondCommandDelay, false,
                   [self, text = std::move(text)](Timer&) { self->sendText(text); });
}

}  // namespace tarsil
