#pragma once

#include <memory>
#include <string>
#include <utility>

#include "tarsil/core/KivStressPortDelegate.hpp"
#include "tools/tarsil/replay/Events.hpp"
#include "tools/tarsil/replay/selectors.hpp"

namespace tarsil::cli {

/// A host's delegate whose calls become events. It answers the selectors that it is made with.
class ReplayHost final : public KivStressPortDelegate {
 public:
  /// `receiver` is "device" or "manager".
  ReplayHost(Events& events, std::string receiver, HostSelectors answered)
      : events_(events), receiver_(std::move(receiver)), answered_(std::move(answered)) {}

  bool respondsTo(Selector selector) const;

  void onReceivedTreadmillLoadWithSpeed(float speed, float grade) override;
  void onReceivedErgometerPowerWithPower(float power) override;
  void onReceivedErgometerRpmWithRpm(float rpm) override;
  void onReceivedBPWithSysBP(float sysBP, float diaBP, std::int64_t status) override;
  void onReceivedSpO2WithSpO2(float SpO2, std::int64_t status) override;
  void onStressDevicesListWithDeviceList(const std::vector<std::string>& deviceList) override;
  void portWasOpened() override;
  void portWasRemovedFromSystem() override;
  void onErrorWithCode(const std::string& code, const std::string& details) override;
  void successfully() override;
  void deviceIsReadyWithIsReady(bool isReady) override;

 private:
  void add(Selector selector, std::initializer_list<Json> arguments);

  Events& events_;
  std::string receiver_;
  HostSelectors answered_;
};

/// The delegate that a script asks for: null stands for none.
KivStressPortDelegateRef replayHost(Events& events, const std::string& receiver,
                                    const std::optional<HostSelectors>& answered);

}  // namespace tarsil::cli
