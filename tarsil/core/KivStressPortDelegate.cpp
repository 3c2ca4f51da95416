#include "tarsil/core/KivStressPortDelegate.hpp"

namespace tarsil {

using Selector = KivStressPortDelegate::Selector;

void KivStressPortDelegateRef::onReceivedTreadmillLoadWithSpeed(float speed, float grade) const {
  if (respondsTo(Selector::onReceivedTreadmillLoadWithSpeed))
    host_->onReceivedTreadmillLoadWithSpeed(speed, grade);
}

void KivStressPortDelegateRef::onReceivedErgometerPowerWithPower(float power) const {
  if (respondsTo(Selector::onReceivedErgometerPowerWithPower))
    host_->onReceivedErgometerPowerWithPower(power);
}

void KivStressPortDelegateRef::onReceivedErgometerRpmWithRpm(float rpm) const {
  if (respondsTo(Selector::onReceivedErgometerRpmWithRpm)) host_->onReceivedErgometerRpmWithRpm(rpm);
}

void KivStressPortDelegateRef::onReceivedBPWithSysBP(float sysBP, float diaBP, std::int64_t status) const {
  if (respondsTo(Selector::onReceivedBPWithSysBP)) host_->onReceivedBPWithSysBP(sysBP, diaBP, status);
}

void KivStressPortDelegateRef::onReceivedSpO2WithSpO2(float SpO2, std::int64_t status) const {
  if (respondsTo(Selector::onReceivedSpO2WithSpO2)) host_->onReceivedSpO2WithSpO2(SpO2, status);
}

void KivStressPortDelegateRef::portWasOpened() const {
  if (respondsTo(Selector::portWasOpened)) host_->portWasOpened();
}

void KivStressPortDelegateRef::portWasRemovedFromSystem() const {
  if (respondsTo(Selector::portWasRemovedFromSystem)) host_->portWasRemovedFromSystem();
}

void KivStressPortDelegateRef::onErrorWithCode(const std::string& code, const std::string& details) const {
  if (respondsTo(Selector::onErrorWithCode)) host_->onErrorWithCode(code, details);
}

void KivStressPortDelegateRef::successfully() const {
  if (respondsTo(Selector::successfully)) host_->successfully();
}

void KivStressPortDelegateRef::deviceIsReadyWithIsReady(bool isReady) const {
  if (respondsTo(Selector::deviceIsReadyWithIsReady)) host_->deviceIsReadyWithIsReady(isReady);
}

}  // namespace tarsil
