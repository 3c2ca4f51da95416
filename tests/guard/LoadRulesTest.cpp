#include "tarsil/guard/detail/LoadRules.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "tarsil/station/standardCatalogue.hpp"

namespace tarsil::detail {
namespace {

using Code = Answer::Code;

DeviceModel model(const char* name) {
  return standardCatalogue().modelNamed(name).value();
}

Answer check(const char* name, const Load& load, const Limits& limits = {}) {
  return LoadRules(model(name), limits).check(load);
}

TEST(LoadRulesTest, TakeALoadThatTheFramesCarryAndTheLimitsAllow) {
  EXPECT_TRUE(check("LodeTreadmill", {.speed = 2.7F, .grade = 10}).isAccepted());
  EXPECT_TRUE(check("LodeTreadmill", {}).isAccepted());
  EXPECT_TRUE(check("ErgolineK2.4P10", {.power = 150}).isAccepted());
}

TEST(LoadRulesTest, RefuseWhatIsNoLoad) {
  EXPECT_EQ(check("LodeTreadmill", {.speed = -0.1F}).code(), Code::badValue);
  EXPECT_EQ(check("LodeTreadmill", {.grade = std::numeric_limits<float>::quiet_NaN()}).code(),
            Code::badValue);
  EXPECT_EQ(check("LodeTreadmill", {.speed = std::numeric_limits<float>::infinity()}).code(), Code::badValue);
}

TEST(LoadRulesTest, RefuseWhatTheFramesDoNotCarryAndNameTheRange) {
  const Answer slow = check("TM-400V2", {.speed = 1.5F});
  EXPECT_EQ(slow.code(), Code::notCarried);
  EXPECT_THAT(slow.reason(), testing::StartsWith("speed 1.5 km/h: TM-400V2 carries 1.6 to"));
  EXPECT_EQ(check("TM-400V2", {.speed = 5, .grade = 2}).code(), Code::notCarried);
  EXPECT_EQ(check("LodeOEMTreadmill", {.speed = 5, .grade = 10}).code(), Code::notCarried);
  EXPECT_EQ(check("TrackMaster", {.speed = 0.6F}).code(), Code::notCarried);
  EXPECT_EQ(check("LodeTreadmill", {.power = 100}).code(), Code::notCarried);
  EXPECT_EQ(check("ErgolineK2.4P10", {.speed = 3}).code(), Code::notCarried);
}

TEST(LoadRulesTest, RefuseAModelThatNoFrameDrives) {
  EXPECT_EQ(check("Ergometer38K4", {.power = 100}).code(), Code::notDrivable);
  EXPECT_EQ(check("KivBicycle", {.power = 100}).code(), Code::notDrivable);
}

TEST(LoadRulesTest, RefuseWhatIsAboveTheLimitsAndNameThem) {
  Limits limits;
  limits.speed.highest = 12;
  const Answer answer = check("LodeTreadmill", {.speed = 12.1F}, limits);
  EXPECT_EQ(answer.code(), Code::aboveLimit);
  EXPECT_EQ(answer.reason(), "speed 12.1 km/h is above the limit of 12.0 km/h");
  EXPECT_TRUE(check("LodeTreadmill", {.speed = 12}, limits).isAccepted());
}

TEST(LoadRulesTest, WalkALargeChangeInSteps) {
  Limits limits;
  limits.speed = {.highest = 12, .step = 1, .perSecond = 0.5F};
  limits.grade = {.highest = 20, .step = 2, .perSecond = 5};
  const LoadRules rules(model("LodeTreadmill"), limits);
  EXPECT_EQ(rules.step({}, {.speed = 5, .grade = 10}), (Load{.speed = 0.5F, .grade = 2}));
  EXPECT_EQ(rules.step({.speed = 4.8F, .grade = 9}, {.speed = 5, .grade = 10}),
            (Load{.speed = 5, .grade = 10}));
  EXPECT_EQ(rules.step({.speed = 4, .grade = 9}, {}), (Load{.speed = 3.5F, .grade = 7}));
}

TEST(LoadRulesTest, JumpOverWhatAModelCannotBeTold) {
  const LoadRules rules(model("TM-400V2"), {});
  EXPECT_EQ(rules.step({}, {.speed = 5}), (Load{.speed = 1.6F}));
  const LoadRules trackMaster(model("TrackMaster"),
                              {.speed = {.highest = 12, .step = 0.5F, .perSecond = 0.5F}});
  EXPECT_EQ(trackMaster.step({}, {.speed = 5}), (Load{.speed = 0.7F}));
  EXPECT_EQ(trackMaster.step({.speed = 1}, {}), Load{});
}

TEST(LoadRulesTest, TellARaiseFromALowering) {
  EXPECT_EQ(LoadRules::onlyLower({.speed = 5, .grade = 10}, {.speed = 6, .grade = 8}),
            (Load{.speed = 5, .grade = 8}));
}

}  // namespace
}  // namespace tarsil::detail
