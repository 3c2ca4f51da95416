#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tarsil/support/Delegate.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil {

/// The optional methods of `KivStressPortDelegate`, in declaration order: the one list of them.
#define TARSIL_KIV_STRESS_PORT_DELEGATE_METHODS(METHOD)                                                  \
  METHOD(onReceivedTreadmillLoadWithSpeed, (float speed, float grade), (speed, grade))                   \
  METHOD(onReceivedErgometerPowerWithPower, (float power), (power))                                      \
  METHOD(onReceivedErgometerRpmWithRpm, (float rpm), (rpm))                                              \
  METHOD(onReceivedBPWithSysBP, (float sysBP, float diaBP, std::int64_t status), (sysBP, diaBP, status)) \
  METHOD(onReceivedSpO2WithSpO2, (float SpO2, std::int64_t status), (SpO2, status))                      \
  METHOD(onStressDevicesListWithDeviceList, (const std::vector<std::string>& deviceList), (deviceList))  \
  METHOD(portWasOpened, (), ())                                                                          \
  METHOD(portWasRemovedFromSystem, (), ())                                                               \
  METHOD(onErrorWithCode, (const std::string& code, const std::string& details), (code, details))        \
  METHOD(successfully, (), ())                                                                           \
  METHOD(deviceIsReadyWithIsReady, (bool isReady), (isReady))

/// What a host hears from its devices. Every method is optional: override the ones that you want; a method
/// that you do not override is never called, and some behaviours depend on which ones you answer.
///
/// Every method is called on the main thread, the one that runs `RunLoop::main()`; none may block it.
class KivStressPortDelegate {
 public:
  virtual ~KivStressPortDelegate() = default;

  /// A treadmill's load. speed in km/h and grade in percent, except where a driver says that it hands over
  /// tenths.
  virtual void onReceivedTreadmillLoadWithSpeed(float /*speed*/, float /*grade*/) {}
  /// An ergometer's power in watts.
  virtual void onReceivedErgometerPowerWithPower(float /*power*/) {}
  /// An ergometer's pedal rate in revolutions per minute.
  virtual void onReceivedErgometerRpmWithRpm(float /*rpm*/) {}
  /// A blood-pressure result, systolic and diastolic in mmHg, or a state of the monitor; status as its driver
  /// says.
  virtual void onReceivedBPWithSysBP(float /*sysBP*/, float /*diaBP*/, std::int64_t /*status*/) {}
  /// Oxygen saturation in percent, -1 when the oximeter has none; status as its driver says.
  virtual void onReceivedSpO2WithSpO2(float /*SpO2*/, std::int64_t /*status*/) {}
  /// Part of the vocabulary; no part of the library calls it.
  virtual void onStressDevicesListWithDeviceList(const std::vector<std::string>& /*deviceList*/) {}
  /// A device's port has been opened.
  virtual void portWasOpened() {}
  /// A device's port disappeared (unplugged, powered off). Not called when the process ends.
  virtual void portWasRemovedFromSystem() {}
  /// Any error; code and details are texts that the driver lists.
  virtual void onErrorWithCode(const std::string& /*code*/, const std::string& /*details*/) {}
  /// The device acknowledged a command.
  virtual void successfully() {}
  /// The answer to `deviceState()`.
  virtual void deviceIsReadyWithIsReady(bool /*isReady*/) {}

  /// `Selector`, an enumerator for each method, and `selectorNames`; in declaration order.
  TARSIL_OPTIONAL_METHODS(KivStressPortDelegate, TARSIL_KIV_STRESS_PORT_DELEGATE_METHODS)
};

/// A strong reference to a host's delegate, or none. It remembers which methods the host's class overrides,
/// and its own methods, the same as the delegate's, ask before they call: what the host does not answer is
/// skipped, and so is every call once the process ends.
class KivStressPortDelegateRef : public DelegateRef<KivStressPortDelegate, std::shared_ptr> {
 public:
  using DelegateRef::DelegateRef;

  explicit operator bool() const { return host_ != nullptr; }
  KivStressPortDelegate* get() const { return host_.get(); }

  /// False when there is no host.
  bool respondsTo(Selector selector) const { return host_ && answers(*host_, selector); }

#define TARSIL_FORWARD(method, parameters, arguments)                                    \
  void method parameters const {                                                         \
    call(Selector::method, [&](KivStressPortDelegate& host) { host.method arguments; }); \
  }
  TARSIL_KIV_STRESS_PORT_DELEGATE_METHODS(TARSIL_FORWARD)
#undef TARSIL_FORWARD

 private:
  template <class Method>
  void call(Selector selector, Method method) const {
    // Ports tell their delegates of the process's end as of a removal; the host's objects may be gone by
    // then.
    if (isProcessEnding() || !respondsTo(selector)) return;
    // The host may drop or replace its delegate inside the call; this copy keeps the object until the call
    // returns.
    const auto kept = host_;
    method(*kept);
  }
};

}  // namespace tarsil
