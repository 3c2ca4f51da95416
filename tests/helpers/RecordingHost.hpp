#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>

#include "tarsil/core/KivStressPortDelegate.hpp"
#include "tests/helpers/RecordedCall.hpp"

namespace tarsil {

// The calls that a host can get, to compare with.
RecordedCall treadmillLoad(float speed, float grade);
RecordedCall ergometerPower(float power);
RecordedCall ergometerRpm(float rpm);
RecordedCall bloodPressure(float sysBP, float diaBP, std::int64_t status);
RecordedCall oxygenSaturation(float SpO2, std::int64_t status);
RecordedCall portWasOpened();
RecordedCall portWasRemoved();
RecordedCall error(const std::string& code, const std::string& details);
RecordedCall successfully();
RecordedCall deviceIsReady(bool isReady);

/// A host that writes down what its devices tell it, in order:
///
///     RecordingHost host;
///     treadmill->kiv_delegate = host;
///     ...
///     EXPECT_THAT(host.calls(), ElementsAre(treadmillLoad(5.0F, 2.5F), successfully()));
///
/// It answers every selector until told otherwise. A call that is not made on the main thread fails the test.
class RecordingHost {
 public:
  using Selector = KivStressPortDelegate::Selector;

  RecordingHost();

  /// The delegate to hand to a device or to the manager.
  operator KivStressPortDelegateRef() const;

  RecordedCalls calls() const;
  /// The calls so far, which are then forgotten.
  RecordedCalls takeCalls();

  void answerOnly(std::initializer_list<Selector> selectors);
  void answerAllBut(std::initializer_list<Selector> selectors);

  /// Called within each call, after it was written down: a host that acts on what it hears.
  void onCall(std::function<void(const RecordedCall&)> action);

 private:
  class Delegate;
  std::shared_ptr<Delegate> delegate_;
};

}  // namespace tarsil
