#include "tarsil/core/KivStressPortDelegate.hpp"

#include "tarsil/support/process.hpp"

namespace tarsil {

using Selector = KivStressPortDelegate::Selector;

namespace {

template <class Method, class... Arguments>
void callHost(const KivStressPortDelegateRef& delegate, Selector selector, Method method,
              const Arguments&... arguments) {
  // Ports tell their delegates of the process's end as of a removal; the host's objects may be gone by then.
  if (isProcessEnding()) return;
  if (!delegate.respondsTo(selector)) return;
  // The host may drop or replace its delegate inside the call; this copy keeps the object until the call
  // returns.
  const KivStressPortDelegateRef kept = delegate;  // NOLINT(performance-unnecessary-copy-initialization)
  (kept.get()->*method)(arguments...);
}

}  // namespace

void KivStressPortDelegateRef::onReceivedTreadmillLoadWithSpeed(float speed, float grade) const {
  callHost(*this, Selector::onReceivedTreadmillLoadWithSpeed,
           &KivStressPortDelegate::onReceivedTreadmillLoadWithSpeed, speed, grade);
}

void KivStressPortDelegateRef::onReceivedErgometerPowerWithPower(float power) const {
  callHost(*this, Selector::onReceivedErgometerPowerWithPower,
           &KivStressPortDelegate::onReceivedErgometerPowerWithPower, power);
}

void KivStressPortDelegateRef::onReceivedErgometerRpmWithRpm(float rpm) const {
  callHost(*this, Selector::onReceivedErgometerRpmWithRpm,
           &KivStressPortDelegate::onReceivedErgometerRpmWithRpm, rpm);
}

void KivStressPortDelegateRef::onReceivedBPWithSysBP(float sysBP, float diaBP, std::int64_t status) const {
  callHost(*this, Selector::onReceivedBPWithSysBP, &KivStressPortDelegate::onReceivedBPWithSysBP, sysBP,
           diaBP, status);
}

void KivStressPortDelegateRef::onReceivedSpO2WithSpO2(float SpO2, std::int64_t status) const {
  callHost(*this, Selector::onReceivedSpO2WithSpO2, &KivStressPortDelegate::onReceivedSpO2WithSpO2, SpO2,
           status);
}

void KivStressPortDelegateRef::onStressDevicesListWithDeviceList(
    const std::vector<std::string>& deviceList) const {
  callHost(*this, Selector::onStressDevicesListWithDeviceList,
           &KivStressPortDelegate::onStressDevicesListWithDeviceList, deviceList);
}

void KivStressPortDelegateRef::portWasOpened() const {
  callHost(*this, Selector::portWasOpened, &KivStressPortDelegate::portWasOpened);
}

void KivStressPortDelegateRef::portWasRemovedFromSystem() const {
  callHost(*this, Selector::portWasRemovedFromSystem, &KivStressPortDelegate::portWasRemovedFromSystem);
}

void KivStressPortDelegateRef::onErrorWithCode(const std::string& code, const std::string& details) const {
  callHost(*this, Selector::onErrorWithCode, &KivStressPortDelegate::onErrorWithCode, code, details);
}

void KivStressPortDelegateRef::successfully() const {
  callHost(*this, Selector::successfully, &KivStressPortDelegate::successfully);
}

void KivStressPortDelegateRef::deviceIsReadyWithIsReady(bool isReady) const {
  callHost(*this, Selector::deviceIsReadyWithIsReady, &KivStressPortDelegate::deviceIsReadyWithIsReady,
           isReady);
}

}  // namespace tarsil
