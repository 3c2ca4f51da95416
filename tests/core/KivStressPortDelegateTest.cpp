#include "tarsil/core/KivStressPortDelegate.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/support/process.hpp"
#include "tests/helpers/FatalStop.hpp"

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using enum KivStressPortDelegate::Selector;

constexpr std::array everySelector = {
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

std::vector<KivStressPortDelegate::Selector> answeredBy(const KivStressPortDelegateRef& delegate) {
  std::vector<KivStressPortDelegate::Selector> answered;
  for (const auto selector : everySelector) {
    if (delegate.respondsTo(selector)) answered.push_back(selector);
  }
  return answered;
}

void callEverything(const KivStressPortDelegateRef& delegate) {
  delegate.onReceivedTreadmillLoadWithSpeed(50.0F, 25.0F);
  delegate.onReceivedErgometerPowerWithPower(120.0F);
  delegate.onReceivedErgometerRpmWithRpm(60.0F);
  delegate.onReceivedBPWithSysBP(120.0F, 80.0F, 0);
  delegate.onReceivedSpO2WithSpO2(97.0F, 1);
  delegate.onStressDevicesListWithDeviceList({"ttyS0", "ttyUSB0"});
  delegate.portWasOpened();
  delegate.portWasRemovedFromSystem();
  delegate.onErrorWithCode("01", "Power Beyond the limit");
  delegate.successfully();
  delegate.deviceIsReadyWithIsReady(true);
}

/// Answers everything and writes down what it hears.
class Listener : public KivStressPortDelegate {
 public:
  std::vector<std::string> heard;

  void onReceivedTreadmillLoadWithSpeed(float speed, float grade) override {
    note("load " + std::to_string(speed) + " " + std::to_string(grade));
  }
  void onReceivedErgometerPowerWithPower(float power) override { note("power " + std::to_string(power)); }
  void onReceivedErgometerRpmWithRpm(float rpm) override { note("rpm " + std::to_string(rpm)); }
  void onReceivedBPWithSysBP(float sysBP, float diaBP, std::int64_t status) override {
    note("BP " + std::to_string(sysBP) + " " + std::to_string(diaBP) + " " + std::to_string(status));
  }
  void onReceivedSpO2WithSpO2(float SpO2, std::int64_t status) override {
    note("SpO2 " + std::to_string(SpO2) + " " + std::to_string(status));
  }
  void onStressDevicesListWithDeviceList(const std::vector<std::string>& deviceList) override {
    for (const auto& name : deviceList) note("list " + name);
  }
  void portWasOpened() override { note("opened"); }
  void portWasRemovedFromSystem() override { note("removed"); }
  void onErrorWithCode(const std::string& code, const std::string& details) override {
    note("error " + code + " " + details);
  }
  void successfully() override { note("successfully"); }
  void deviceIsReadyWithIsReady(bool isReady) override { note(isReady ? "ready" : "not ready"); }

 private:
  void note(std::string words) { heard.push_back(std::move(words)); }
};

TEST(KivStressPortDelegateTest, AnEmptyReferenceAnswersNothingAndSkipsEveryCall) {
  const KivStressPortDelegateRef none;
  EXPECT_FALSE(none);
  EXPECT_EQ(none.get(), nullptr);
  EXPECT_THAT(answeredBy(none), IsEmpty());
  callEverything(none);
  EXPECT_FALSE(KivStressPortDelegateRef(nullptr));
  EXPECT_THAT(answeredBy(KivStressPortDelegateRef(std::shared_ptr<Listener>())), IsEmpty());
}

TEST(KivStressPortDelegateTest, AHostThatOverridesEverythingHearsEveryCallWithItsArguments) {
  const auto host = std::make_shared<Listener>();
  const KivStressPortDelegateRef delegate = host;
  EXPECT_TRUE(delegate);
  EXPECT_EQ(delegate.get(), host.get());
  EXPECT_THAT(answeredBy(delegate), testing::ElementsAreArray(everySelector));
  callEverything(delegate);
  EXPECT_THAT(host->heard,
              ElementsAre("load 50.000000 25.000000", "power 120.000000", "rpm 60.000000",
                          "BP 120.000000 80.000000 0", "SpO2 97.000000 1", "list ttyS0", "list ttyUSB0",
                          "opened", "removed", "error 01 Power Beyond the limit", "successfully", "ready"));
}

TEST(KivStressPortDelegateDeathTest, AHostHearsNothingOnceTheProcessEnds) {
  const auto host = std::make_shared<Listener>();
  const KivStressPortDelegateRef delegate = host;
  EXPECT_EXIT(
      {
        beginProcessEnd();
        callEverything(delegate);
        std::_Exit(host->heard.empty() ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST(KivStressPortDelegateTest, AHostAnswersExactlyWhatItOverrides) {
  class Host : public KivStressPortDelegate {
   public:
    int errors = 0;

   private:
    void onReceivedSpO2WithSpO2(float /*SpO2*/, std::int64_t /*status*/) override {}
    void onErrorWithCode(const std::string& /*code*/, const std::string& /*details*/) override { ++errors; }
  };
  const auto host = std::make_shared<Host>();
  EXPECT_THAT(answeredBy(host), ElementsAre(onReceivedSpO2WithSpO2, onErrorWithCode));
  callEverything(host);
  EXPECT_EQ(host->errors, 1);
}

TEST(KivStressPortDelegateTest, EverySelectorHasItsMethodsName) {
  ASSERT_EQ(KivStressPortDelegate::selectorNames.size(), everySelector.size());
  const auto nameOf = [](KivStressPortDelegate::Selector selector) {
    return KivStressPortDelegate::selectorNames[static_cast<std::size_t>(selector)];
  };
  EXPECT_EQ(nameOf(onReceivedTreadmillLoadWithSpeed), "onReceivedTreadmillLoadWithSpeed");
  EXPECT_EQ(nameOf(successfully), "successfully");
  EXPECT_EQ(nameOf(deviceIsReadyWithIsReady), "deviceIsReadyWithIsReady");
}

/// What a host's factory knows of what it makes.
class HostBase : public KivStressPortDelegate {
 public:
  void portWasOpened() override {}
};

class Window final : public HostBase {
 public:
  void onErrorWithCode(const std::string& /*code*/, const std::string& /*details*/) override {}
};

std::shared_ptr<HostBase> makeHost() {
  return std::make_shared<Window>();
}

TEST(KivStressPortDelegateTest, AHostWhosePointerHidesItsOverridesStopsTheProcess) {
  EXPECT_EQ(
      fatalReason([] { KivStressPortDelegateRef delegate = makeHost(); }),
      "a delegate of class tarsil::(anonymous namespace)::Window was handed over as "
      "tarsil::(anonymous namespace)::HostBase, which does not tell what its own class overrides: hand it "
      "over as its own class, or say which one with tarsil::answering<Host>(pointer)");
  EXPECT_THAT(answeredBy(std::make_shared<HostBase>()), ElementsAre(portWasOpened)) << "it is one";
  EXPECT_THAT(answeredBy(std::shared_ptr<HostBase>()), IsEmpty());
}

TEST(KivStressPortDelegateTest, AHostAnswersWhatTheClassOverridesThatItIsSaidToBe) {
  EXPECT_THAT(answeredBy(answering<Window>(makeHost())), ElementsAre(portWasOpened, onErrorWithCode));
  EXPECT_THAT(answeredBy(answering<Window>(std::shared_ptr<KivStressPortDelegate>(makeHost()))),
              ElementsAre(portWasOpened, onErrorWithCode));
  EXPECT_THAT(answeredBy(answering<HostBase>(makeHost())), ElementsAre(portWasOpened)) << "as was asked for";
  EXPECT_FALSE(KivStressPortDelegateRef(answering<Window>(std::shared_ptr<HostBase>())));
}

TEST(KivStressPortDelegateTest, AHostThatIsNotWhatItIsSaidToBeStopsTheProcess) {
  EXPECT_EQ(fatalReason([] { answering<Window>(std::make_shared<HostBase>()); }),
            "a delegate of class tarsil::(anonymous namespace)::HostBase is no "
            "tarsil::(anonymous namespace)::Window");
}

/// A base that lets its classes say what they answer, for hosts that nobody else can name.
class SpeakingBase : public KivStressPortDelegate {
 public:
  virtual bool respondsTo(Selector selector) const = 0;
};

class Hidden final : public SpeakingBase {
 public:
  bool respondsTo(Selector selector) const override {
    return overrides<Hidden, KivStressPortDelegate>(selector);
  }
  void successfully() override {}
};

TEST(KivStressPortDelegateTest, AHostThatNobodyElseCanNameSaysItself) {
  EXPECT_THAT(answeredBy(std::shared_ptr<SpeakingBase>(std::make_shared<Hidden>())),
              ElementsAre(KivStressPortDelegate::Selector::successfully));
}

TEST(KivStressPortDelegateTest, AHostThatOverridesNothingAnswersNothing) {
  class Host : public KivStressPortDelegate {};
  EXPECT_THAT(answeredBy(std::make_shared<Host>()), IsEmpty());
}

TEST(KivStressPortDelegateTest, AnInheritedOverrideIsAnAnswer) {
  class Host : public Listener {};
  EXPECT_THAT(answeredBy(std::make_shared<Host>()), testing::ElementsAreArray(everySelector));
}

/// Answers one selector at a time, chosen by the test; its class overrides everything.
class ChoosingListener : public Listener {
 public:
  std::optional<Selector> chosen;
  bool respondsTo(Selector selector) const { return selector == chosen; }
};

TEST(KivStressPortDelegateTest, AHostThatDecidesAtRunTimeHearsOnlyWhatItAnswersThen) {
  const auto host = std::make_shared<ChoosingListener>();
  const KivStressPortDelegateRef delegate = host;
  callEverything(delegate);
  EXPECT_THAT(host->heard, IsEmpty());
  host->chosen = successfully;
  callEverything(delegate);
  host->chosen = portWasOpened;
  callEverything(delegate);
  EXPECT_THAT(host->heard, ElementsAre("successfully", "opened"));
}

/// Drops the only reference to itself inside a call, then still uses itself.
class LeavingHost : public KivStressPortDelegate {
 public:
  LeavingHost(KivStressPortDelegateRef& delegate, std::vector<std::string>& story)
      : delegate_(delegate), story_(story) {}
  ~LeavingHost() override { story_.push_back("destroyed"); }

 private:
  void successfully() override {
    delegate_ = nullptr;
    story_.push_back("still here");
  }
  KivStressPortDelegateRef& delegate_;
  std::vector<std::string>& story_;
};

TEST(KivStressPortDelegateTest, AHostMayDropItsDelegateInsideACall) {
  std::vector<std::string> story;
  KivStressPortDelegateRef delegate;
  delegate = std::make_shared<LeavingHost>(delegate, story);
  delegate.successfully();
  EXPECT_THAT(story, ElementsAre("still here", "destroyed"));
  EXPECT_FALSE(delegate);
}

}  // namespace
}  // namespace tarsil
