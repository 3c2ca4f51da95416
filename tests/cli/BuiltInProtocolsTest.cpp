#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>

#include "tarsil/exercise/Protocol.hpp"
#include "tests/cli-report/ScratchFolder.hpp"
#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/run/protocolNamed.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAreArray;
using enum Phase::Kind;

Phase phase(Phase::Kind kind, Duration duration, float load, float grade = 0) {
  return {.kind = kind, .duration = duration, .load = load, .endLoad = load, .grade = grade};
}

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
