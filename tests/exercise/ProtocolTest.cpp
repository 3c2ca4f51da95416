#include "tarsil/exercise/Protocol.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using enum Phase::Kind;

Phase phase(Phase::Kind kind, Duration duration, float load, float grade = 0) {
  return {.kind = kind, .duration = duration, .load = load, .endLoad = load, .grade = grade};
}

TEST(ProtocolTest, ReadsATreadmillsPhases) {
  const Protocol protocol = readProtocol(
      "# comment\n"
      "name  Two  words # and a comment\r\n"
      "\n"
      "device\ttreadmill\n"
      "warm-up 1:00 1.6 0\n"
      "stage 0:01 .5 30\n"
      "stage 120:00 25 2.5\n"
      "recovery 2:05 1.6 0",
      "walk");
  EXPECT_EQ(protocol.name, "Two words");
  EXPECT_EQ(protocol.device, StressDeviceType::Treadmill);
  EXPECT_THAT(protocol.phases, ElementsAre(phase(warmUp, 1min, 1.6F), phase(stage, 1s, 0.5F, 30),
                                           phase(stage, 2h, 25, 2.5F), phase(recovery, 125s, 1.6F)));
  EXPECT_EQ(protocol.duration(), 1min + 1s + 2h + 125s);
}

TEST(ProtocolTest, ReadsABicyclesPhasesAndRamps) {
  const Protocol protocol =
      readProtocol("name Ride\ndevice bicycle\nstage 1:00 999\nramp 10:00 25 225\n", "ride");
  EXPECT_EQ(protocol.device, StressDeviceType::Ergometer);
  EXPECT_THAT(protocol.phases,
              ElementsAre(phase(stage, 1min, 999),
                          Phase{.kind = stage, .duration = 10min, .load = 25, .endLoad = 225}));
}

TEST(ProtocolTest, ReadsWhenPressuresAreMeasured) {
  const Protocol protocol = readProtocol(
      "name A\ndevice bicycle\n"
      "pressure every 3:00\n"
      "stage 3:00 50\n"
      "pressure at 2:30\n"
      "recovery 2:00 25\nrecovery 2:00 10\n"
      "pressure at 0:30\n"
      "pressure rest\n"
      "pressure recovery at 0:00\n"
      "pressure recovery at 3:30\n"
      "pressure recovery every 1:00",
      "file");
  EXPECT_EQ(protocol.pressures, (PressureTimes{.atRest = true,
                                               .inStage = {30s, 150s},
                                               .every = 3min,
                                               .inRecovery = {0s, 210s},
                                               .everyInRecovery = 1min}));
  EXPECT_TRUE(protocol.pressures.nameExerciseTimes());
  EXPECT_THAT(protocol.lines, ElementsAre(4, 6, 7));
}

TEST(ProtocolTest, LeavesTheTimesOfPressuresOpenWhereTheTextDoes) {
  const Protocol protocol = readProtocol("name A\ndevice bicycle\nstage 3:00 50\npressure rest\n", "file");
  EXPECT_FALSE(protocol.pressures.nameExerciseTimes());
}

TEST(ProtocolTest, ReadsBackFromItsText) {
  for (const char* text :
       {"name Bruce, long\ndevice treadmill\nwarm-up 1:00 1.6 0\nstage 3:05 2.74 10.5\nstage 120:00 5 0\n"
        "recovery 2:00 1.6 0\npressure rest\npressure at 2:00\npressure recovery every 1:30\n",
        "name A\ndevice bicycle\nramp 10:00 25 225\nstage 1:00 50.5\npressure every 3:00\n"
        "pressure recovery at 0:00\nrecovery 1:00 25\n"}) {
    const Protocol protocol = readProtocol(text, "file");
    const Protocol again = readProtocol(protocolText(protocol), "file");
    EXPECT_EQ(again.name, protocol.name);
    EXPECT_EQ(again.device, protocol.device);
    EXPECT_EQ(again.phases, protocol.phases);
    EXPECT_EQ(again.pressures, protocol.pressures);
  }
}

TEST(ProtocolTest, NamesItsPhases) {
  const Protocol protocol = readProtocol(
      "name A\ndevice bicycle\nwarm-up 1:00 5\nstage 1:00 9\nstage 1:00 9\nrecovery 1:00 5", "file");
  EXPECT_EQ(protocol.phaseName(0), "warm-up");
  EXPECT_EQ(protocol.phaseName(1), "stage 1 of 2");
  EXPECT_EQ(protocol.phaseName(2), "stage 2 of 2");
  EXPECT_EQ(protocol.phaseName(3), "recovery");
}

struct Faulty {
  const char* text;
  const char* reason;
};

constexpr const char* wrongPressure =
    "file:2: pressure is followed by rest, or by at or every with a time, or by recovery and one of these";

class FaultyProtocolTest : public testing::TestWithParam<Faulty> {};

TEST_P(FaultyProtocolTest, IsRefusedWithFileLineAndReason) {
  EXPECT_THAT([] { readProtocol(GetParam().text, "file"); },
              testing::ThrowsMessage<ProtocolError>(GetParam().reason));
}

INSTANTIATE_TEST_SUITE_P(
    Lines, FaultyProtocolTest,
    testing::Values(
        Faulty{"", "file:0: there is no name"}, Faulty{"name A\n", "file:1: there is no device"},
        Faulty{"name A\ndevice bicycle\n\n", "file:3: there is no stage"},
        Faulty{"name A\ndevice bicycle\nrecovery 1:00 5\n", "file:3: there is no stage"},
        Faulty{"name\n", "file:1: name needs a text"}, Faulty{"name # A\n", "file:1: name needs a text"},
        Faulty{"device boat\n", "file:1: device is either treadmill or bicycle"},
        Faulty{"device\n", "file:1: device is either treadmill or bicycle"},
        Faulty{"device bicycle treadmill\n", "file:1: device is either treadmill or bicycle"},
        Faulty{"device bicycle\ndevice bicycle\n", "file:2: the device was named before"},
        Faulty{"stage 1:00 5 0\n", "file:1: the device must be named before the first phase"},
        Faulty{"\n\nsprint 1:00\n", "file:3: unknown word \"sprint\""},
        Faulty{"device treadmill\nstage 1:00 5\n", "file:2: stage needs a duration and km/h and percent"},
        Faulty{"device bicycle\nwarm-up 1:00 5 0\n", "file:2: warm-up needs a duration and watts"},
        Faulty{"device treadmill\nramp 1:00 1 2\n", "file:2: a ramp is for bicycles"},
        Faulty{"device bicycle\nramp 1:00 1\n",
               "file:2: ramp needs a duration, and watts at its beginning and at its end"},
        Faulty{"device bicycle\nstage 60 5\n", "file:2: \"60\" is no duration, such as 3:00"},
        Faulty{"device bicycle\nstage 1:60 5\n", "file:2: \"1:60\" is no duration, such as 3:00"},
        Faulty{"device bicycle\nstage -1:00 5\n", "file:2: \"-1:00\" is no duration, such as 3:00"},
        Faulty{"device bicycle\nstage 1:x 5\n", "file:2: \"1:x\" is no duration, such as 3:00"},
        Faulty{"device bicycle\nstage 0:00 5\n", "file:2: a phase lasts from a second to two hours"},
        Faulty{"device bicycle\nstage 120:01 5\n", "file:2: a phase lasts from a second to two hours"},
        Faulty{"device bicycle\nstage 121:00 5\n", "file:2: \"121:00\" is no duration, such as 3:00"},
        Faulty{"device bicycle\nstage 1:00 fast\n", "file:2: \"fast\" is no power"},
        Faulty{"device bicycle\nstage 1:00 nan\n", "file:2: \"nan\" is no power"},
        Faulty{"device bicycle\nstage 1:00 1000\n", "file:2: the power must be from 0 to 999, not 1000"},
        Faulty{"device bicycle\nramp 1:00 5 -1\n", "file:2: the power must be from 0 to 999, not -1"},
        Faulty{"device treadmill\nstage 1:00 25.1 0\n", "file:2: the speed must be from 0 to 25, not 25.1"},
        Faulty{"device treadmill\nstage 1:00 x 0\n", "file:2: \"x\" is no speed"},
        Faulty{"device treadmill\nstage 1:00 5 30.5\n", "file:2: the grade must be from 0 to 30, not 30.5"},
        Faulty{"device treadmill\nstage 1:00 5 -1\n", "file:2: the grade must be from 0 to 30, not -1"},
        Faulty{"device treadmill\nstage 1:00 5 up\n", "file:2: \"up\" is no grade"},
        Faulty{"device bicycle\nstage 1:00 5\nwarm-up 1:00 5\n",
               "file:3: phases come in the order warm-up, stages, recovery"},
        Faulty{"device bicycle\nrecovery 1:00 5\nstage 1:00 5\n",
               "file:3: phases come in the order warm-up, stages, recovery"},
        Faulty{"device bicycle\npressure\n", wrongPressure}, Faulty{"name A\npressure now\n", wrongPressure},
        Faulty{"name A\npressure rest 1:00\n", wrongPressure},
        Faulty{"name A\npressure recovery 1:00\n", wrongPressure},
        Faulty{"name A\npressure at\n", wrongPressure},
        Faulty{"pressure at 120\n", "file:1: \"120\" is no duration, such as 3:00"},
        Faulty{"pressure every 0:59\n", "file:1: pressures are at least 1:00 apart"},
        Faulty{"pressure recovery every 0:00\n", "file:1: pressures are at least 1:00 apart"},
        Faulty{"pressure every 2:00\npressure every 2:00\n",
               "file:2: the interval of pressures was named before"},
        Faulty{"name A\ndevice bicycle\npressure at 2:00\nstage 2:00 5\nstage 1:00 5\n",
               "file:3: no stage lasts until 2:00"},
        Faulty{"name A\ndevice bicycle\nstage 2:00 5\npressure recovery at 0:30\n",
               "file:4: the recovery does not last until 0:30"}));

}  // namespace
}  // namespace tarsil
