#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "tests/cli-report/ScratchFolder.hpp"
#include "tests/cli/Program.hpp"
#include "tools/tarsil/run/protocolNamed.hpp"

namespace tarsil::cli {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr const char* overLine = "-------- the session is over\n";

Program::Ended runSimulated(std::vector<std::string> arguments) {
  const std::vector<std::string> common{"run", "--simulate", "--speedup", "100000"};
  arguments.insert(arguments.begin(), common.begin(), common.end());
  return run(arguments);
}

void expectCompleted(const Program::Ended& ended) {
  EXPECT_EQ(ended.code, 0) << ended.output;
  EXPECT_THAT(ended.errors, IsEmpty());
  EXPECT_THAT(ended.output, Not(HasSubstr("FAILURE")));
  EXPECT_THAT(ended.output, EndsWith(overLine));
}

// Whole sessions on virtual time.

class ShippedProtocolTest : public testing::TestWithParam<std::string> {};

TEST_P(ShippedProtocolTest, RunsToItsEnd) {
  const Protocol protocol = protocolNamed(GetParam());
  const bool isTreadmill = protocol.device == StressDeviceType::Treadmill;
  const auto ended = runSimulated(
      {"--exercise", isTreadmill ? "LodeTreadmill" : "ErgosanaK4.8P10", "--protocol", GetParam()});
  expectCompleted(ended);
  for (std::size_t i = 0; i < protocol.phases.size(); ++i) {
    EXPECT_THAT(ended.output, HasSubstr("-------- " + protocol.phaseName(i) + "\n"));
  }
}

INSTANTIATE_TEST_SUITE_P(All, ShippedProtocolTest, testing::ValuesIn(builtInProtocols()));

class SimulatedModelTest : public testing::TestWithParam<std::pair<const char*, const char*>> {};

TEST_P(SimulatedModelTest, GoesThroughAShortTest) {
  const auto& [model, protocol] = GetParam();
  expectCompleted(runSimulated({"--exercise", model, "--protocol", protocol}));
}

INSTANTIATE_TEST_SUITE_P(
    All, SimulatedModelTest,
    testing::Values(std::pair{"TM-400V2", "demo-treadmill"}, std::pair{"LodeOEMTreadmill", "demo-treadmill"},
                    std::pair{"LodeTreadmill", "demo-treadmill"}, std::pair{"TrackMaster", "demo-treadmill"},
                    std::pair{"KivBicycle", "demo-bicycle"}, std::pair{"Ergometer38K4", "demo-bicycle"},
                    std::pair{"ErgolineK2.4P10", "demo-bicycle"},
                    std::pair{"ErgosanaK4.8P10", "demo-bicycle"},
                    std::pair{"ErgometricsK2.4P3", "demo-bicycle"}));

TEST(RunCommandTest, TakesAnOximeterOverBluetooth) {
  const ScratchFolder folder;
  const auto ended =
      runSimulated({"--protocol", "demo-treadmill", "--spo2", "bluetooth", "--report", folder.path()});
  expectCompleted(ended);
  EXPECT_THAT(ended.output, HasSubstr("look for the Bluetooth oximeter"));
  EXPECT_THAT(ended.output, HasSubstr(" 98 %\n"));
  // What it recorded can be run again.
  const auto replayed = run({"replay", (folder / "session.jsonl").string()});
  EXPECT_EQ(replayed.code, 0);
  EXPECT_THAT(replayed.errors, IsEmpty());
  EXPECT_THAT(replayed.output, HasSubstr("onReceivedTreadmillLoadWithSpeed:grade:"));
}

TEST(RunCommandTest, TakesAProtocolFromAFileAndLeavesAReport) {
  const ScratchFolder folder;
  std::ofstream(folder / "mine") << "name Mine\ndevice bicycle\nstage 0:30 60\n";
  expectCompleted(runSimulated(
      {"--exercise", "ErgolineK2.4P10", "--protocol", folder / "mine", "--report", folder / "deep/report"}));
  EXPECT_THAT(textOf(folder / "deep/report/session.csv"),
              EndsWith(",session,event,over,,,,the session is over\n"));
  EXPECT_THAT(textOf(folder / "deep/report/session.jsonl"), StartsWith("# Mine on ErgolineK2.4P10, "));
  EXPECT_THAT(textOf(folder / "deep/report/report.html"), HasSubstr("<h1>Mine</h1>"));
}

// Bad input: one line, and nothing moves.

struct Refused {
  std::vector<std::string> arguments;
  const char* line;
};

class RefusedRunTest : public testing::TestWithParam<Refused> {};

TEST_P(RefusedRunTest, SaysWhyInOneLineAndMovesNothing) {
  std::vector<std::string> arguments{"run"};
  arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
  const auto ended = run(arguments);
  EXPECT_EQ(ended.code, 2);
  EXPECT_EQ(ended.errors, std::string("tarsil: ") + GetParam().line + "\n");
  EXPECT_THAT(ended.output, Not(HasSubstr("start")));
  EXPECT_THAT(ended.output, Not(HasSubstr("set ")));
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, RefusedRunTest,
    testing::Values(
        Refused{{"--simulate", "--exercise", "Bike"},
                "no exercise device is called \"Bike\"; see `tarsil devices`"},
        Refused{{"--simulate", "--exercise", "Tango"},
                "no exercise device is called \"Tango\"; see `tarsil devices`"},
        Refused{{}, "name the exercise device's port: --exercise MODEL@PORT"},
        Refused{{"--exercise", "LodeTreadmill@ttyNone"}, "there is no port \"ttyNone\"; see `tarsil ports`"},
        Refused{{"--exercise", "LodeTreadmill@/dev/null", "--bp", "/dev/null"},
                "the port \"/dev/null\" cannot serve two devices"},
        Refused{{"--exercise", "LodeTreadmill@/dev/null", "--spo2", "ttyNone"},
                "there is no port \"ttyNone\"; see `tarsil ports`"},
        Refused{{"--simulate", "--protocol", "nothing"},
                "cannot read the protocol \"nothing\": No such file or directory"},
        Refused{{"--simulate", "--protocol", "demo-bicycle"},
                "the protocol \"50 W steps, shortened\" is not for a device such as LodeTreadmill"},
        Refused{{"--exercise", "LodeTreadmill@/dev/null", "--speedup", "2"},
                "only a simulated station can live faster: add --simulate"},
        Refused{{"--fly"}, "The following argument was not expected: --fly (see --help)"}));

TEST(RunCommandTest, RefusesASpeedupOutOfItsRange) {
  for (const char* speedup : {"0.5", "nan", "1e7", "fast"}) {
    const auto ended = run({"run", "--simulate", "--speedup", speedup});
    EXPECT_EQ(ended.code, 2) << speedup;
    EXPECT_THAT(ended.errors, StartsWith("tarsil: --speedup: ")) << speedup;
  }
}

TEST(RunCommandTest, RefusesAFaultyProtocolWithItsLine) {
  const ScratchFolder folder;
  const std::string file = folder / "faulty";
  std::ofstream(file) << "name A\ndevice treadmill\nstage 3:00 99 0\n";
  const auto ended = run({"run", "--simulate", "--protocol", file});
  EXPECT_EQ(ended.code, 2);
  EXPECT_EQ(ended.errors, "tarsil: " + file + ":3: the speed must be from 0 to 25\n");
  EXPECT_THAT(ended.output, IsEmpty());
}

TEST(RunCommandTest, RefusesASpeedThatTheDriverDoesNotBringOver) {
  const ScratchFolder folder;
  const std::string file = folder / "slow";
  std::ofstream(file) << "name Slow\ndevice treadmill\nstage 0:10 1.5 0\n";
  for (const std::string model : {"LodeOEMTreadmill", "TM-400V2"}) {
    const auto ended = run({"run", "--simulate", "--exercise", model, "--protocol", file});
    EXPECT_EQ(ended.code, 2);
    EXPECT_EQ(ended.errors,
              "tarsil: the protocol \"Slow\" has 1.5 km/h; " + model + " cannot be set below 1.6\n");
    EXPECT_THAT(ended.output, IsEmpty());
  }
}

// Output that cannot be written.

TEST(RunCommandTest, RefusesAReportOnAFullDiskBeforeAnythingMoves) {
  const ScratchFolder folder;
  std::filesystem::create_symlink("/dev/full", folder / "session.csv");
  const auto ended = runSimulated({"--protocol", "demo-treadmill", "--report", folder.path()});
  EXPECT_EQ(ended.code, 7);
  EXPECT_EQ(ended.errors,
            "tarsil: cannot write " + (folder / "session.csv").string() + ": No space left on device\n");
  EXPECT_THAT(ended.output, Not(HasSubstr("start")));
}

TEST(RunCommandTest, StopsTheExerciseWhenTheReportCannotGrow) {
  const ScratchFolder folder;
  // Blocks of 512 bytes: full in the middle of the exercise.
  Program program("/bin/sh", {"-c", "ulimit -f 16; exec " TARSIL_PROGRAM
                                    " run --simulate --speedup 100000 --protocol bruce --report '" +
                                        folder.path().string() + "'"});
  const auto ended = program.wait();
  EXPECT_EQ(ended.code, 7);
  EXPECT_EQ(ended.errors,
            "tarsil: cannot write " + (folder / "session.jsonl").string() + ": File too large\n");
  const std::size_t stopped = ended.output.find("File too large");
  ASSERT_NE(stopped, std::string::npos) << ended.output;
  EXPECT_THAT(ended.output.substr(stopped), HasSubstr("  exercise  stop "));
  EXPECT_THAT(ended.output, EndsWith(overLine));
  // What was written until then is whole, and used all the room there was.
  const std::string script = textOf(folder / "session.jsonl");
  EXPECT_THAT(script, EndsWith("}\n"));
  EXPECT_GT(script.size(), 8192U - 200U);
  EXPECT_LE(script.size(), 8192U);
  EXPECT_THAT(textOf(folder / "session.csv"), EndsWith("\n"));
}

TEST(RunCommandTest, FinishesTheExerciseThoughNobodyReadsItsOutput) {
  const ScratchFolder folder;
  Program program("/bin/sh", {"-c", "exec " TARSIL_PROGRAM
                                    " run --simulate --speedup 100000 --protocol demo-treadmill --report '" +
                                        folder.path().string() + "' > /dev/full"});
  const auto ended = program.wait();
  EXPECT_EQ(ended.code, 1);
  EXPECT_EQ(ended.errors, "tarsil: cannot write to standard output\n");
  EXPECT_THAT(textOf(folder / "session.csv"), EndsWith(",session,event,over,,,,the session is over\n"));
}

}  // namespace
}  // namespace tarsil::cli
