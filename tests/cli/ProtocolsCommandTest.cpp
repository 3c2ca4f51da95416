#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "tests/cli-report/ScratchFolder.hpp"
#include "tests/cli/Program.hpp"

namespace tarsil::cli {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* walk = "name Walk\ndevice treadmill\nstage 0:30 1.2 5 # slow\n";

class ProtocolsCommandTest : public testing::Test {
 protected:
  std::string file(const char* text) const {
    std::ofstream(folder_ / "mine") << text;
    return folder_ / "mine";
  }

 private:
  ScratchFolder folder_;
};

TEST_F(ProtocolsCommandTest, ListsThoseThatComeWithTheProgram) {
  const auto ended = run({"protocols"});
  EXPECT_EQ(ended.code, 0);
  EXPECT_THAT(ended.output, HasSubstr("\nbruce            treadmill   24:00      7  Bruce\n"));
  EXPECT_THAT(ended.output, HasSubstr("\n25-watt-steps    bicycle "));
}

TEST_F(ProtocolsCommandTest, PrintsOneThatCanBeUsedAsAFile) {
  const auto ended = run({"protocols", "bruce"});
  EXPECT_EQ(ended.code, 0);
  EXPECT_THAT(ended.output, HasSubstr("stage     3:00      2.74  10\n"));
  const auto checked = run({"protocols", "--check", file(ended.output.c_str())});
  EXPECT_EQ(checked.code, 0);
  EXPECT_THAT(checked.output, HasSubstr("/mine: Bruce, for a treadmill, 7 stages, 24:00\n"));
}

TEST_F(ProtocolsCommandTest, RefusesANameWithTheOneThatWasMeant) {
  const auto ended = run({"protocols", "bruc"});
  EXPECT_EQ(ended.code, 2);
  EXPECT_EQ(ended.errors,
            "tarsil: no protocol is called \"bruc\"; see `tarsil protocols`; did you mean \"bruce\"?\n");
}

TEST_F(ProtocolsCommandTest, ChecksAFileAgainstEveryModel) {
  const std::string path = file(walk);
  const auto ended = run({"protocols", "--check", path});
  EXPECT_EQ(ended.code, 0) << ended.errors;
  EXPECT_EQ(
      ended.output,
      path +
          ": Walk, for a treadmill, 1 stage, 0:30\n"
          "  TM-400V2           line 3, stage 1 of 1: speed 1.2 km/h: TM-400V2 carries 1.6 to 17.2 km/h\n"
          "  LodeOEMTreadmill   line 3, stage 1 of 1: speed 1.2 km/h: LodeOEMTreadmill carries 1.6 to "
          "25.5 km/h\n"
          "  LodeTreadmill      carries it\n"
          "  TrackMaster        carries it\n");
}

TEST_F(ProtocolsCommandTest, RefusesWhatOneModelDoesNotCarryWithLineValueAndRange) {
  const std::string path = file(walk);
  const auto refused = run({"protocols", "--check", path, "--model-limits", "TM-400V2"});
  EXPECT_EQ(refused.code, 2);
  EXPECT_THAT(refused.errors, HasSubstr(path + ": line 3, stage 1 of 1: speed 1.2 km/h: TM-400V2 carries "));
  EXPECT_THAT(refused.output, IsEmpty());
  EXPECT_EQ(run({"protocols", "--check", path, "--model-limits", "LodeTreadmill"}).code, 0);
  EXPECT_THAT(run({"protocols", "--check", path, "--model-limits", "ErgolineK2.4P10"}).errors,
              HasSubstr("the protocol is for a treadmill, ErgolineK2.4P10 is none"));
}

TEST_F(ProtocolsCommandTest, RefusesAFaultyFileWithLineValueAndReason) {
  const std::string path = file("name A\ndevice bicycle\nstage 1:00 1000\n");
  const auto ended = run({"protocols", "--check", path});
  EXPECT_EQ(ended.code, 2);
  EXPECT_EQ(ended.errors, "tarsil: " + path + ":3: the power must be from 0 to 999, not 1000\n");
}

}  // namespace
}  // namespace tarsil::cli
