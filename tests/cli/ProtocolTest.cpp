#include "tools/tarsil/run/Protocol.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "tests/cli-report/ScratchFolder.hpp"
#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/run/protocolNamed.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
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

struct Faulty {
  const char* text;
  const char* reason;
};

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
        Faulty{"device bicycle\nstage 1:00 1000\n", "file:2: the power must be from 0 to 999"},
        Faulty{"device bicycle\nramp 1:00 5 -1\n", "file:2: the power must be from 0 to 999"},
        Faulty{"device treadmill\nstage 1:00 25.1 0\n", "file:2: the speed must be from 0 to 25"},
        Faulty{"device treadmill\nstage 1:00 x 0\n", "file:2: \"x\" is no speed"},
        Faulty{"device treadmill\nstage 1:00 5 30.5\n", "file:2: the grade must be from 0 to 30"},
        Faulty{"device treadmill\nstage 1:00 5 -1\n", "file:2: the grade must be from 0 to 30"},
        Faulty{"device treadmill\nstage 1:00 5 up\n", "file:2: \"up\" is no grade"},
        Faulty{"device bicycle\nstage 1:00 5\nwarm-up 1:00 5\n",
               "file:3: phases come in the order warm-up, stages, recovery"},
        Faulty{"device bicycle\nrecovery 1:00 5\nstage 1:00 5\n",
               "file:3: phases come in the order warm-up, stages, recovery"}));

/// The stages alone, as they stand in the literature.
std::vector<Phase> stagesOf(const std::string& name) {
  std::vector<Phase> stages;
  for (const Phase& phase : protocolNamed(name).phases) {
    if (phase.kind == stage) stages.push_back(phase);
  }
  return stages;
}

std::vector<Phase> bruceStages() {
  std::vector<Phase> stages;
  const std::vector<std::pair<float, float>> table{{2.74F, 10}, {4.02F, 12}, {5.47F, 14}, {6.76F, 16},
                                                   {8.05F, 18}, {8.85F, 20}, {9.65F, 22}};
  for (const auto& [speed, grade] : table) stages.push_back(phase(stage, 3min, speed, grade));
  return stages;
}

TEST(BuiltInProtocolsTest, HaveTheStagesOfTheLiterature) {
  EXPECT_THAT(stagesOf("bruce"), ElementsAreArray(bruceStages()));

  std::vector<Phase> modified = bruceStages();
  modified.insert(modified.begin(), {phase(stage, 3min, 2.74F, 0), phase(stage, 3min, 2.74F, 5)});
  EXPECT_THAT(stagesOf("modified-bruce"), ElementsAreArray(modified));

  std::vector<Phase> naughton;
  for (int i = 0; i < 7; ++i) naughton.push_back(phase(stage, 2min, 3.22F, 3.5F * static_cast<float>(i)));
  EXPECT_THAT(stagesOf("naughton"), ElementsAreArray(naughton));

  std::vector<Phase> usafsam;
  for (int i = 0; i < 6; ++i) usafsam.push_back(phase(stage, 3min, 5.31F, 5 * static_cast<float>(i)));
  EXPECT_THAT(stagesOf("usafsam"), ElementsAreArray(usafsam));

  std::vector<Phase> steps;
  for (int i = 1; i <= 8; ++i) steps.push_back(phase(stage, 2min, 25 * static_cast<float>(i)));
  EXPECT_THAT(stagesOf("25-watt-steps"), ElementsAreArray(steps));
  EXPECT_EQ(protocolNamed("25-watt-steps").phases.back(), phase(recovery, 2min, 25));
}

TEST(ProtocolNamedTest, ReadsAFile) {
  const ScratchFolder folder;
  std::ofstream(folder / "mine") << "name Mine\ndevice bicycle\nstage 1:00 60\n";
  EXPECT_EQ(protocolNamed((folder / "mine").string()).name, "Mine");
}

TEST(ProtocolNamedTest, RefusesWhatCannotBeRead) {
  const ScratchFolder folder;
  const auto refuses = [](const std::string& path, const std::string& reason) {
    EXPECT_THAT([&] { protocolNamed(path); },
                testing::Throws<CommandFailure>(
                    testing::AllOf(testing::Property(&CommandFailure::code, badInput),
                                   testing::Property(&CommandFailure::what, testing::StrEq(reason)))));
  };
  refuses("nothing", "cannot read the protocol \"nothing\": No such file or directory");
  refuses(folder.path(), "cannot read the protocol \"" + folder.path().string() + "\": Is a directory");
  const std::string faulty = folder / "faulty";
  std::ofstream(faulty) << "name A\nfly\n";
  refuses(faulty, faulty + ":2: unknown word \"fly\"");
}

}  // namespace
}  // namespace tarsil::cli
