#include "tarsil/runtime/NotificationCenter.hpp"

#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class NotificationCenterTest : public testing::Test {
 protected:
  std::function<void(const Notification&)> record(std::string name) {
    return
        [this, name](const Notification& notification) { calls.push_back(name + " " + notification.name); };
  }

  NotificationCenter& center = NotificationCenter::defaultCenter();
  std::vector<std::string> calls;
};

TEST_F(NotificationCenterTest, CallsTheObserversOfTheNameInTheOrderOfAsking) {
  const auto first = center.addObserver("arrival", record("first"));
  const auto other = center.addObserver("removal", record("other"));
  const auto second = center.addObserver("arrival", record("second"));
  center.post({"arrival"});
  EXPECT_THAT(calls, ElementsAre("first arrival", "second arrival"));
}

TEST_F(NotificationCenterTest, PassesTheDetailsOn) {
  const auto observation = center.addObserver("arrival", [this](const Notification& notification) {
    EXPECT_EQ(notification.object, this);
    EXPECT_EQ(std::any_cast<int>(notification.userInfo.at("ports")), 3);
    calls.push_back("called");
  });
  center.post({"arrival", this, {{"ports", 3}}});
  EXPECT_THAT(calls, ElementsAre("called"));
}

TEST_F(NotificationCenterTest, AnObservationEndsWhenItIsDropped) {
  { const auto observation = center.addObserver("arrival", record("a")); }
  center.post({"arrival"});
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(NotificationCenterTest, AnObserverMayLeaveWhileItIsCalled) {
  Observation self;
  self = center.addObserver("arrival", [&](const Notification&) {
    self.reset();
    calls.push_back("once");
  });
  center.post({"arrival"});
  center.post({"arrival"});
  EXPECT_THAT(calls, ElementsAre("once"));
}

TEST_F(NotificationCenterTest, AnObserverThatLeftDuringACallIsCalledNoMore) {
  Observation second;
  const auto first = center.addObserver("arrival", [&](const Notification&) { second.reset(); });
  second = center.addObserver("arrival", record("second"));
  center.post({"arrival"});
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(NotificationCenterTest, AnObserverThatCameDuringACallHearsOfTheNext) {
  Observation late;
  const auto first = center.addObserver("arrival", [&](const Notification&) {
    late.reset();
    late = center.addObserver("arrival", record("late"));
  });
  center.post({"arrival"});
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(NotificationCenterTest, AnObserverMayPost) {
  const auto inner = center.addObserver("inner", record("a"));
  const auto outer = center.addObserver("outer", [this](const Notification&) { center.post({"inner"}); });
  center.post({"outer"});
  EXPECT_THAT(calls, ElementsAre("a inner"));
}

}  // namespace
}  // namespace tarsil
