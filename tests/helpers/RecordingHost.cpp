#include "tests/helpers/RecordingHost.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "tarsil/runtime/RunLoop.hpp"

namespace tarsil {
namespace {

RecordedCall call(const std::string& name, const std::string& arguments) {
  return {name + "(" + arguments + ")"};
}

std::string quoted(const std::string& text) {
  return '"' + text + '"';
}

}  // namespace

RecordedCall treadmillLoad(float speed, float grade) {
  return call("treadmillLoad", floatText(speed) + ", " + floatText(grade));
}
RecordedCall ergometerPower(float power) {
  return call("ergometerPower", floatText(power));
}
RecordedCall ergometerRpm(float rpm) {
  return call("ergometerRpm", floatText(rpm));
}
RecordedCall bloodPressure(float sysBP, float diaBP, std::int64_t status) {
  return call("bloodPressure", floatText(sysBP) + ", " + floatText(diaBP) + ", " + std::to_string(status));
}
RecordedCall oxygenSaturation(float SpO2, std::int64_t status) {
  return call("oxygenSaturation", floatText(SpO2) + ", " + std::to_string(status));
}
RecordedCall portWasOpened() {
  return call("portWasOpened", "");
}
RecordedCall portWasRemoved() {
  return call("portWasRemoved", "");
}
RecordedCall error(const std::string& code, const std::string& details) {
  return call("error", quoted(code) + ", " + quoted(details));
}
RecordedCall successfully() {
  return call("successfully", "");
}
RecordedCall deviceIsReady(bool isReady) {
  return call("deviceIsReady", isReady ? "true" : "false");
}

class RecordingHost::Delegate final : public KivStressPortDelegate {
 public:
  bool respondsTo(Selector selector) const {
    const bool isListed = std::find(listed.begin(), listed.end(), selector) != listed.end();
    return isListed == answersListed;
  }

  void onReceivedTreadmillLoadWithSpeed(float speed, float grade) override {
    note(tarsil::treadmillLoad(speed, grade));
  }
  void onReceivedErgometerPowerWithPower(float power) override { note(ergometerPower(power)); }
  void onReceivedErgometerRpmWithRpm(float rpm) override { note(ergometerRpm(rpm)); }
  void onReceivedBPWithSysBP(float sysBP, float diaBP, std::int64_t status) override {
    note(bloodPressure(sysBP, diaBP, status));
  }
  void onReceivedSpO2WithSpO2(float SpO2, std::int64_t status) override {
    note(oxygenSaturation(SpO2, status));
  }
  void onStressDevicesListWithDeviceList(const std::vector<std::string>& /*deviceList*/) override {
    ADD_FAILURE() << "nothing calls onStressDevicesListWithDeviceList";
  }
  void portWasOpened() override { note(tarsil::portWasOpened()); }
  void portWasRemovedFromSystem() override { note(portWasRemoved()); }
  void onErrorWithCode(const std::string& code, const std::string& details) override {
    note(error(code, details));
  }
  void successfully() override { note(tarsil::successfully()); }
  void deviceIsReadyWithIsReady(bool isReady) override { note(deviceIsReady(isReady)); }

  RecordedCalls calls;
  std::vector<Selector> listed;
  bool answersListed = false;
  std::function<void(const RecordedCall&)> action;

 private:
  void note(RecordedCall call) {
    EXPECT_TRUE(RunLoop::isMainThread()) << call.text << " off the main thread";
    calls.push_back(call);
    if (action) action(call);
  }
};

RecordingHost::RecordingHost() : delegate_(std::make_shared<Delegate>()) {}

RecordingHost::operator KivStressPortDelegateRef() const {
  return delegate_;
}

RecordedCalls RecordingHost::calls() const {
  return delegate_->calls;
}

RecordedCalls RecordingHost::takeCalls() {
  return std::exchange(delegate_->calls, {});
}

void RecordingHost::answerOnly(std::initializer_list<Selector> selectors) {
  delegate_->listed = selectors;
  delegate_->answersListed = true;
}

void RecordingHost::answerAllBut(std::initializer_list<Selector> selectors) {
  delegate_->listed = selectors;
  delegate_->answersListed = false;
}

void RecordingHost::onCall(std::function<void(const RecordedCall&)> action) {
  delegate_->action = std::move(action);
}

}  // namespace tarsil
