#include "tarsil/guard/detail/StopFrames.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tarsil/station/standardCatalogue.hpp"
#include "tests/guard/GuardedSession.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil::detail {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class StopFramesTest : public testing::Test {
 protected:
  static StopFrames of(const char* model) {
    return stopFramesOf(*standardCatalogue().modelNamed(model).value().makeDevice());
  }

  StopFramesTest() { GuardedSession::time(); }
};

TEST_F(StopFramesTest, AreWhatTheDriverSends) {
  EXPECT_THAT(of("LodeTreadmill").now, ElementsAre(hex("02 03 00 A1 30 03")));
  EXPECT_THAT(of("LodeOEMTreadmill").now, ElementsAre(hex("AC 01 0C 00 00 00 00")));
  EXPECT_THAT(of("TM-400V2").now, ElementsAre(hex("23 E3 10 00 20 00 ED")));
  EXPECT_THAT(of("ErgolineK2.4P10").now, ElementsAre(hex("46 0D"), hex("46 0D"), hex("46 0D")));
  EXPECT_THAT(of("ErgometricsK2.4P3").now, ElementsAre(hex("46 0D"), hex("46 0D")));
  EXPECT_THAT(of("KivBicycle").now, IsEmpty());
}

TEST_F(StopFramesTest, KeepTheStopCommandOfATrackMasterForABeltThatStands) {
  const StopFrames frames = of("TrackMaster");
  EXPECT_THAT(frames.now, ElementsAre(hex("A3 30 30 30"), hex("A4 30 30 30 30")));
  EXPECT_THAT(frames.standing, ElementsAre(hex("A2")));
}

TEST_F(StopFramesTest, LeaveNoTimerBehind) {
  auto driver = standardCatalogue().modelNamed("TrackMaster").value().makeDevice();
  const std::weak_ptr<KivStressDevice> gone = driver;
  stopFramesOf(*driver);
  driver.reset();
  GuardedSession::time().settle();
  EXPECT_TRUE(gone.expired());
}

}  // namespace
}  // namespace tarsil::detail
