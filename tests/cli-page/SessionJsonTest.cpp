#include "tools/tarsil/page/sessionJson.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <nlohmann/json.hpp>

#include "tests/cli-report/SimulatedSession.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;
using Json = nlohmann::json;

constexpr const char* walk =
    "name Walk\ndevice treadmill\nwarm-up 0:10 1.6 0\nstage 1:30 2.7 10\nrecovery 0:10 1.6 0\n";
constexpr const char* ride = "name Ride\ndevice bicycle\nstage 1:30 50\n";

class SessionJsonTest : public testing::Test {
 protected:
  void begin(const std::string& model, const std::string& protocol) {
    session_.emplace(model, protocol);
    session_->begin();
  }
  /// Into the middle of the protocol's phase.
  void reach(std::size_t phase) {
    while (test().state() != ExerciseTest::State::exercising || test().phaseIndex() < phase)
      session_->time.advance(250ms);
    session_->time.advance(40s);
  }

  ExerciseTest& test() { return *session_->test; }
  GuardedStation& station() { return *session_->station; }
  Json now(const SessionTitle& title = {}, const std::optional<SessionEnd>& end = {}) {
    return Json::parse(nowJson(title, test(), station(), 5s, end));
  }
  Json sample() { return Json::parse(sampleJson(test(), station(), 5s)); }

  std::optional<SimulatedSession> session_;
};

double tenth(double value) {
  return std::round(value * 10) / 10;
}

TEST_F(SessionJsonTest, ATreadmillsMoment) {
  begin("LodeTreadmill", walk);
  reach(1);
  const Json seen =
      now({.model = "LodeTreadmill", .patient = "P17", .isSimulated = true, .takesOrders = true});
  const Readings readings = station().readings();
  EXPECT_EQ(seen["at"], 5);
  EXPECT_EQ(seen["protocol"], "Walk");
  EXPECT_EQ(seen["model"], "LodeTreadmill");
  EXPECT_EQ(seen["patient"], "P17");
  EXPECT_EQ(seen["isSimulated"], true);
  EXPECT_EQ(seen["takesOrders"], true);
  EXPECT_EQ(seen["isTreadmill"], true);
  EXPECT_EQ(seen["isExercising"], true);
  EXPECT_EQ(seen["doing"], "");
  EXPECT_EQ(seen["outcome"], nullptr);
  EXPECT_EQ(seen["phase"]["name"], "stage 1 of 1");
  EXPECT_EQ(seen["phase"]["duration"], 90);
  EXPECT_NEAR(seen["phase"]["left"].get<double>(), 50, 0.5);
  EXPECT_NEAR(seen["phase"]["exerciseLeft"].get<double>(), 60, 0.5);
  EXPECT_EQ(seen["phase"]["next"], "recovery: 1.60 km/h, 0.0 %");
  EXPECT_EQ(seen["phase"]["heldFor"], nullptr);
  EXPECT_EQ(seen["target"], (Json{{"load", 2.7}, {"grade", 10}}));
  EXPECT_EQ(seen["asked"], (Json{{"load", 2.7}, {"grade", 10}}));
  EXPECT_EQ(seen["load"]["value"], 2.7);
  EXPECT_EQ(seen["load"]["isFresh"], true);
  EXPECT_LT(seen["load"]["age"], 1.1);
  EXPECT_EQ(seen["grade"]["value"], tenth(static_cast<double>(readings.grade.value)));
  EXPECT_EQ(seen["pedals"], (Json{{"isReported", false}}));
  EXPECT_EQ(seen["saturation"]["value"], static_cast<double>(readings.saturation.value));
  EXPECT_EQ(seen["alarms"], Json::array());
  EXPECT_EQ(sample(), (Json{{"at", 5},
                            {"isExercising", true},
                            {"asked", 2.7},
                            {"askedGrade", 10},
                            {"load", 2.7},
                            {"grade", seen["grade"]["value"]},
                            {"pedals", nullptr},
                            {"saturation", seen["saturation"]["value"]}}));
}

TEST_F(SessionJsonTest, ABicyclesMomentAndAHeldStage) {
  begin("ErgosanaK4.8P10", ride);
  reach(0);
  test().hold(true);
  session_->time.advance(3s);
  const Json seen = now();
  EXPECT_EQ(seen["isTreadmill"], false);
  EXPECT_EQ(seen["load"]["value"], 50);
  EXPECT_EQ(seen["target"], (Json{{"load", 50}, {"grade", nullptr}}));
  EXPECT_EQ(seen["grade"], (Json{{"isReported", false}}));
  EXPECT_GT(seen["pedals"]["value"], 0);
  EXPECT_EQ(seen["phase"]["heldFor"], 3);
  EXPECT_EQ(seen["phase"]["next"], "the end");
}

TEST_F(SessionJsonTest, WhatWasNeverHeardIsNoValue) {
  begin("LodeTreadmill", walk);
  const Json seen = now();
  EXPECT_EQ(seen["doing"], "connecting: every device has to answer");
  EXPECT_EQ(seen["phase"], nullptr);
  EXPECT_EQ(seen["load"], (Json{{"isReported", true}}));
  EXPECT_EQ(seen["pressure"], (Json{{"isReported", true}}));
  EXPECT_EQ(sample()["load"], nullptr);
  EXPECT_EQ(sample()["saturation"], nullptr);
}

TEST_F(SessionJsonTest, WhatIsOldIsShownAsOldAndNotDrawn) {
  begin("LodeTreadmill", walk);
  reach(1);
  session_->simulated.reset();
  session_->time.advance(5s);
  const Json seen = now();
  EXPECT_EQ(seen["load"]["isFresh"], false);
  EXPECT_GT(seen["load"]["age"], 4);
  EXPECT_EQ(seen["load"]["value"], 2.7);
  EXPECT_EQ(sample()["load"], nullptr);
  EXPECT_EQ(sample()["grade"], nullptr);
  EXPECT_THAT(seen["alarms"].dump(),
              testing::HasSubstr(R"({"isNote":false,"text":"the exercise device's port has vanished"})"));
}

TEST_F(SessionJsonTest, TheEndHasItsReasonAndItsFiles) {
  begin("LodeTreadmill", walk);
  const Json seen = now({}, SessionEnd{.text = "completed", .isGood = true, .folder = "/sessions/today"});
  EXPECT_EQ(seen["outcome"], (Json{{"text", "completed"}, {"isGood", true}, {"folder", "/sessions/today"}}));
}

Json eventOf(Event::What what, Source source = Source::station) {
  const std::string text =
      eventJson({.source = source, .what = std::move(what)}, 65s, StressDeviceType::Treadmill);
  return text.empty() ? Json() : Json::parse(text)["event"];
}

TEST(EventJsonTest, HasWhatIsNewsAndItsValues) {
  EXPECT_EQ(
      eventOf(Marked{"dizzy <b>\"&"}),
      (Json{
          {"at", 65}, {"who", "session"}, {"text", "dizzy <b>\"&"}, {"isFailure", false}, {"isMark", true}}));
  EXPECT_EQ(eventOf(PhaseBegan{.index = 1, .name = "stage 1 of 7", .target = {}})["phase"], "stage 1 of 7");
  const Json pressure = eventOf(PressureMeasured{.pressure = {120, 80}}, Source::monitor);
  EXPECT_EQ(pressure["pressure"], (Json{120, 80}));
  EXPECT_EQ(pressure["who"], "pressure");
  EXPECT_EQ(eventOf(ProtectiveStop{AlarmKind::lineLost})["isFailure"], true);
  EXPECT_EQ(eventOf(LoadMeasured{}), nullptr);
  EXPECT_EQ(eventOf(Sent{}), nullptr);
}

TEST(EventJsonTest, IsOneLineOfUtf8WhateverADeviceSays) {
  const std::string text =
      eventJson({.source = Source::exercise, .what = DeviceRefused{"04", "\xff\xfe\n\r\x01</script>"}}, 1s,
                StressDeviceType::Treadmill);
  EXPECT_EQ(text.find('\n'), std::string::npos);
  EXPECT_TRUE(Json::accept(text));
  EXPECT_THAT(Json::parse(text)["event"]["text"].get<std::string>(),
              testing::HasSubstr("\xEF\xBF\xBD\xEF\xBF\xBD"));
}

}  // namespace
}  // namespace tarsil::cli
