#include "tools/tarsil/replay/ReplayHost.hpp"

#include <algorithm>

namespace tarsil::cli {

bool ReplayHost::respondsTo(Selector selector) const {
  return std::find(answered_.begin(), answered_.end(), selector) != answered_.end();
}

void ReplayHost::add(Selector selector, std::initializer_list<Json> arguments) {
  Json event = Json::array({"call", receiver_, fullName(selector)});
  for (const auto& argument : arguments) event.push_back(argument);
  events_.add(event);
}

void ReplayHost::onReceivedTreadmillLoadWithSpeed(float speed, float grade) {
  add(Selector::onReceivedTreadmillLoadWithSpeed, {number(speed), number(grade)});
}

void ReplayHost::onReceivedErgometerPowerWithPower(float power) {
  add(Selector::onReceivedErgometerPowerWithPower, {number(power)});
}

void ReplayHost::onReceivedErgometerRpmWithRpm(float rpm) {
  add(Selector::onReceivedErgometerRpmWithRpm, {number(rpm)});
}

void ReplayHost::onReceivedBPWithSysBP(float sysBP, float diaBP, std::int64_t status) {
  add(Selector::onReceivedBPWithSysBP, {number(sysBP), number(diaBP), status});
}

void ReplayHost::onReceivedSpO2WithSpO2(float SpO2, std::int64_t status) {
  add(Selector::onReceivedSpO2WithSpO2, {number(SpO2), status});
}

void ReplayHost::onStressDevicesListWithDeviceList(const std::vector<std::string>& deviceList) {
  add(Selector::onStressDevicesListWithDeviceList, {Json(deviceList)});
}

void ReplayHost::portWasOpened() {
  add(Selector::portWasOpened, {});
}

void ReplayHost::portWasRemovedFromSystem() {
  add(Selector::portWasRemovedFromSystem, {});
}

void ReplayHost::onErrorWithCode(const std::string& code, const std::string& details) {
  add(Selector::onErrorWithCode, {code, details});
}

void ReplayHost::successfully() {
  add(Selector::successfully, {});
}

void ReplayHost::deviceIsReadyWithIsReady(bool isReady) {
  add(Selector::deviceIsReadyWithIsReady, {isReady});
}

KivStressPortDelegateRef replayHost(Events& events, const std::string& receiver,
                                    const std::optional<HostSelectors>& answered) {
  if (!answered) return nullptr;
  return std::make_shared<ReplayHost>(events, receiver, *answered);
}

}  // namespace tarsil::cli
