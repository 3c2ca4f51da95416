#include "tarsil/guard/eventText.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <set>
#include <string>
#include <utility>

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using enum StressDeviceType;

EventText told(Event::What what, StressDeviceType kind = Treadmill) {
  return textOf(Event{.what = std::move(what)}, kind);
}

TEST(EventTextTest, OfALoadHasWhatItsDeviceHas) {
  const Load load{.speed = 2.7F, .grade = 10, .power = 125};
  const EventText treadmill = told(Asked{.command = Command::setLoad, .load = load});
  EXPECT_EQ(treadmill.kind, EventKind::asked);
  EXPECT_EQ(treadmill.word, "setLoad");
  EXPECT_THAT(treadmill.values, ElementsAre(2.7F, 10));
  EXPECT_EQ(treadmill.text, "set 2.70 km/h, 10.0 %");
  const EventText bicycle = told(Asked{.command = Command::setLoad, .load = load}, Ergometer);
  EXPECT_THAT(bicycle.values, ElementsAre(125, 0));
  EXPECT_EQ(bicycle.text, "set 125 W");
  EXPECT_EQ(told(LoadMeasured{load}).text, "2.7 km/h, 10.0 %");
  EXPECT_EQ(told(LoadMeasured{load}, Ergometer).text, "125 W");
  EXPECT_EQ(told(LoadMeasured{load}, Ergometer).word, "power");
}

TEST(EventTextTest, NamesCommandsAsTheFacadeDoes) {
  EXPECT_EQ(told(Asked{.command = Command::start}).word, "startStressDevice");
  EXPECT_EQ(told(Asked{.command = Command::stop}).word, "stopStressDevice");
  EXPECT_EQ(told(Asked{.command = Command::startPressure}).word, "startBP");
  EXPECT_EQ(told(Asked{.command = Command::startPressure}).text, "start blood pressure");
}

TEST(EventTextTest, SaysWhatADeviceRefusedWithAndWithoutItsWords) {
  EXPECT_EQ(told(DeviceRefused{.code = "04", .details = "急停"}).text, "error 04: 急停");
  EXPECT_EQ(told(DeviceRefused{.code = "04", .details = ""}).text,
            "error 04: the device refused, and says no more");
  EXPECT_EQ(told(DeviceRefused{.code = "", .details = "send failure"}).text, "refused: send failure");
  EXPECT_EQ(told(DeviceRefused{.code = "04", .details = ""}).kind, EventKind::failure);
}

TEST(EventTextTest, AnAlarmOfLowPriorityIsNoFailure) {
  EXPECT_EQ(told(AlarmRaised{.kind = AlarmKind::unseenStop, .text = ""}).kind, EventKind::notice);
  const EventText high = told(AlarmRaised{.kind = AlarmKind::notSeenToStop, .text = ""});
  EXPECT_EQ(high.kind, EventKind::failure);
  EXPECT_EQ(high.text, "ALARM: not seen to stop");
}

TEST(EventTextTest, BytesAreHexadecimal) {
  EXPECT_EQ(told(Sent{{0x02, 0xfe}}).text, "02fe");
  EXPECT_EQ(told(Received{{0x02, 0xfe}}).word, "received");
  EXPECT_EQ(told(Sent{}).kind, EventKind::traffic);
}

TEST(EventTextTest, BearsEveryNumber) {
  for (const float value :
       {std::numeric_limits<float>::max(), std::numeric_limits<float>::lowest(),
        std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
    EXPECT_THAT(told(LoadMeasured{{value, value, value}}).text, testing::EndsWith(" %"));
  }
}

TEST(EventTextTest, EveryAlarmHasWordsOfItsOwn) {
  std::set<std::string> all;
  int count = 0;
  for (; *name(static_cast<AlarmKind>(count)) != 0; ++count) {
    const std::string text = shortText(static_cast<AlarmKind>(count));
    EXPECT_THAT(text, testing::Not(IsEmpty())) << name(static_cast<AlarmKind>(count));
    all.insert(text);
  }
  EXPECT_EQ(all.size(), static_cast<std::size_t>(count));
  EXPECT_GT(count, 0);
}

TEST(ClockTextTest, CountsMinutesOn) {
  EXPECT_EQ(clockText(0s), "0:00");
  EXPECT_EQ(clockText(65s + 999ms), "1:05");
  EXPECT_EQ(clockText(61min + 5s), "61:05");
}

}  // namespace
}  // namespace tarsil
