#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tarsil/support/Delegate.hpp"

namespace tarsil {

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
  /// A device's port disappeared (unplugged, powered off).
  virtual void portWasRemovedFromSystem() {}
  /// Any error; code and details are texts that the driver lists.
  virtual void onErrorWithCode(const std::string& /*code*/, const std::string& /*details*/) {}
  /// The device acknowledged a command.
  virtual void successfully() {}
  /// The answer to `deviceState()`.
  virtual void deviceIsReadyWithIsReady(bool /*isReady*/) {}

  /// The optional methods, in declaration order.
  enum class Selector {
    onReceivedTreadmillLoadWithSpeed,
    onReceivedErgometerPowerWithPower,
    onReceivedErgometerRpmWithRpm,
    onReceivedBPWithSysBP,
    onReceivedSpO2WithSpO2,
    onStressDevicesListWithDeviceList,
    portWasOpened,
    portWasRemovedFromSystem,
    onErrorWithCode,
    successfully,
    deviceIsReadyWithIsReady,
  };

  /// The methods that the class `Host` overrides.
  template <class Host>
  static constexpr AnsweredSelectors<KivStressPortDelegate> overriddenBy();
};

/// A strong reference to a host's delegate, or none. It remembers which methods the host's class overrides,
/// and its own methods ask before they call: what the host does not answer is skipped.
class KivStressPortDelegateRef {
 public:
  using Selector = KivStressPortDelegate::Selector;

  KivStressPortDelegateRef() = default;
  KivStressPortDelegateRef(std::nullptr_t) {}

  /// Implicit, so that a host writes `device->kiv_delegate = std::make_shared<Host>();`.
  template <std::derived_from<KivStressPortDelegate> Host>
  KivStressPortDelegateRef(std::shared_ptr<Host> host)
      : host_(std::move(host)), respondsTo_(&hostRespondsTo<Host, KivStressPortDelegate>) {}

  explicit operator bool() const { return host_ != nullptr; }
  KivStressPortDelegate* get() const { return host_.get(); }

  /// False when there is no host.
  bool respondsTo(Selector selector) const { return host_ && respondsTo_(*host_, selector); }

  void onReceivedTreadmillLoadWithSpeed(float speed, float grade) const;
  void onReceivedErgometerPowerWithPower(float power) const;
  void onReceivedErgometerRpmWithRpm(float rpm) const;
  void onReceivedBPWithSysBP(float sysBP, float diaBP, std::int64_t status) const;
  void onReceivedSpO2WithSpO2(float SpO2, std::int64_t status) const;
  void onStressDevicesListWithDeviceList(const std::vector<std::string>& deviceList) const;
  void portWasOpened() const;
  void portWasRemovedFromSystem() const;
  void onErrorWithCode(const std::string& code, const std::string& details) const;
  void successfully() const;
  void deviceIsReadyWithIsReady(bool isReady) const;

 private:
  std::shared_ptr<KivStressPortDelegate> host_;
  bool (*respondsTo_)(const KivStressPortDelegate&, Selector) = nullptr;
};

template <class Host>
constexpr AnsweredSelectors<KivStressPortDelegate> KivStressPortDelegate::overriddenBy() {
  using P = KivStressPortDelegate;
  using enum Selector;
  return AnsweredSelectors<P>{}
      .set(
          onReceivedTreadmillLoadWithSpeed,
          !requires {
            requires Inherits<&Host::onReceivedTreadmillLoadWithSpeed, &P::onReceivedTreadmillLoadWithSpeed>;
          })
      .set(
          onReceivedErgometerPowerWithPower,
          !requires {
            requires Inherits<&Host::onReceivedErgometerPowerWithPower,
                              &P::onReceivedErgometerPowerWithPower>;
          })
      .set(
          onReceivedErgometerRpmWithRpm,
          !requires {
            requires Inherits<&Host::onReceivedErgometerRpmWithRpm, &P::onReceivedErgometerRpmWithRpm>;
          })
      .set(
          onReceivedBPWithSysBP,
          !requires { requires Inherits<&Host::onReceivedBPWithSysBP, &P::onReceivedBPWithSysBP>; })
      .set(
          onReceivedSpO2WithSpO2,
          !requires { requires Inherits<&Host::onReceivedSpO2WithSpO2, &P::onReceivedSpO2WithSpO2>; })
      .set(
          onStressDevicesListWithDeviceList,
          !requires {
            requires Inherits<&Host::onStressDevicesListWithDeviceList,
                              &P::onStressDevicesListWithDeviceList>;
          })
      .set(
          portWasOpened, !requires { requires Inherits<&Host::portWasOpened, &P::portWasOpened>; })
      .set(
          portWasRemovedFromSystem,
          !requires { requires Inherits<&Host::portWasRemovedFromSystem, &P::portWasRemovedFromSystem>; })
      .set(
          onErrorWithCode, !requires { requires Inherits<&Host::onErrorWithCode, &P::onErrorWithCode>; })
      .set(
          successfully, !requires { requires Inherits<&Host::successfully, &P::successfully>; })
      .set(
          deviceIsReadyWithIsReady,
          !requires { requires Inherits<&Host::deviceIsReadyWithIsReady, &P::deviceIsReadyWithIsReady>; });
}

}  // namespace tarsil
