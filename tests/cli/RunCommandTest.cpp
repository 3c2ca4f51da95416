#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

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

/// The one folder in there.
std::filesystem::path onlySessionIn(const std::filesystem::path& folder) {
  std::filesystem::directory_iterator found(folder);
  return found == std::filesystem::directory_iterator() ? folder : found->path();
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

// Each model with loads that its frames carry.
constexpr const char* hill =
    "name Hill\ndevice treadmill\nwarm-up 0:05 1.6 0\nstage 0:40 2.7 10\nrecovery 0:06 1.6 0\n";
constexpr const char* plain =
    "name Plain\ndevice treadmill\nwarm-up 0:05 1.6 0\nstage 0:40 2.7 0\nrecovery 0:06 1.6 0\n";
constexpr const char* steep = "name Steep\ndevice treadmill\nstage 0:40 2.7 16\nstage 0:10 1.6 16\n";
constexpr const char* ride = "name Ride\ndevice bicycle\nwarm-up 0:05 25\nstage 0:40 50\nrecovery 0:06 25\n";

class SimulatedModelTest : public testing::TestWithParam<std::pair<const char*, const char*>> {};

TEST_P(SimulatedModelTest, GoesThroughAShortTest) {
  const auto& [model, protocol] = GetParam();
  const ScratchFolder folder;
  std::ofstream(folder / "protocol") << protocol;
  expectCompleted(runSimulated({"--exercise", model, "--protocol", folder / "protocol"}));
}

INSTANTIATE_TEST_SUITE_P(All, SimulatedModelTest,
                         testing::Values(std::pair{"TM-400V2", plain}, std::pair{"LodeOEMTreadmill", steep},
                                         std::pair{"LodeTreadmill", hill}, std::pair{"TrackMaster", hill},
                                         std::pair{"ErgolineK2.4P10", ride},
                                         std::pair{"ErgosanaK4.8P10", ride},
                                         std::pair{"ErgometricsK2.4P3", ride}));

class UndrivableModelTest : public testing::TestWithParam<const char*> {};

TEST_P(UndrivableModelTest, IsRefusedForAProtocol) {
  const auto ended = runSimulated({"--exercise", GetParam(), "--protocol", "demo-bicycle"});
  EXPECT_EQ(ended.code, 2);
  EXPECT_THAT(ended.errors, HasSubstr(std::string(GetParam()) + " cannot be driven: none of its frames"));
  EXPECT_THAT(ended.output, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(All, UndrivableModelTest, testing::Values("KivBicycle", "Ergometer38K4"));

TEST(RunCommandTest, TakesAnOximeterOverBluetooth) {
  const auto ended = runSimulated({"--protocol", "demo-treadmill", "--spo2", "bluetooth"});
  expectCompleted(ended);
  EXPECT_THAT(ended.output, HasSubstr(" 98 %\n"));
}

TEST(RunCommandTest, TakesAProtocolFromAFileAndLeavesAReport) {
  const ScratchFolder folder;
  std::ofstream(folder / "mine") << "name Mine\ndevice bicycle\nstage 0:30 60\n";
  const auto ended =
      runSimulated({"--exercise", "ErgolineK2.4P10", "--protocol", folder / "mine", "--report",
                    folder / "deep/sessions", "--patient", "P17", "--operator", "Dr. O", "--mass", "70"});
  EXPECT_EQ(ended.code, 0) << ended.errors;
  const auto session = onlySessionIn(folder / "deep/sessions");
  EXPECT_THAT(ended.output, EndsWith("The session's folder: " + session.string() + "\n"));
  EXPECT_THAT(textOf(session / "session.csv"), EndsWith(",session,event,over,,,,the session is over\n"));
  EXPECT_THAT(textOf(session / "journal.jsonl"), StartsWith("{\"tarsil-journal\":1,"));
  const std::string page = textOf(session / "report.html");
  EXPECT_THAT(page, HasSubstr("<h1>Mine</h1>"));
  EXPECT_THAT(page, HasSubstr("SIMULATED"));
  EXPECT_THAT(page, HasSubstr("<dd>P17</dd>"));
  EXPECT_THAT(page, HasSubstr("<dd>Dr. O</dd>"));
  EXPECT_THAT(page, HasSubstr("Peak METs"));
}

TEST(RunCommandTest, NeverWritesOverAnEarlierSession) {
  const ScratchFolder folder;
  for (int i = 0; i < 2; ++i) runSimulated({"--protocol", "demo-treadmill", "--report", folder.path()});
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 2);
}

TEST(RunCommandTest, MakesAReportAgainFromTheJournalAlsoOfAKilledSession) {
  const ScratchFolder folder;
  runSimulated({"--protocol", "demo-treadmill", "--report", folder.path()});
  const auto session = onlySessionIn(folder.path());
  const std::string page = textOf(session / "report.html");
  std::filesystem::remove(session / "report.html");
  const auto again = run({"report", session});
  EXPECT_EQ(again.code, 0);
  EXPECT_EQ(again.output, (session / "report.html").string() + "\n");
  EXPECT_EQ(textOf(session / "report.html"), page);

  // As a killed program leaves it, in the middle of a line.
  std::filesystem::resize_file(session / "journal.jsonl",
                               std::filesystem::file_size(session / "journal.jsonl") / 2);
  const auto torn = run({"report", session});
  EXPECT_EQ(torn.code, 0);
  EXPECT_THAT(textOf(session / "report.html"), HasSubstr("broken off: the program was gone"));
}

TEST(ReportCommandTest, RefusesWhatIsNoSession) {
  const ScratchFolder folder;
  const auto none = run({"report", folder.path()});
  EXPECT_EQ(none.code, 2);
  EXPECT_EQ(none.errors,
            "tarsil: cannot read " + (folder / "journal.jsonl").string() + ": No such file or directory\n");
  std::ofstream(folder / "journal.jsonl") << "hello\n";
  EXPECT_EQ(run({"report", folder.path()}).errors,
            "tarsil: " + (folder / "journal.jsonl").string() + " is no journal of a session\n");
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
        Refused{{"--exercise", "LodeTredmill@ttyNone"},
                "no exercise device is called \"LodeTredmill\"; see `tarsil devices`; did you mean "
                "\"LodeTreadmill\"?"},
        Refused{
            {"--exercise", "LodeTreadmill@/dev/null"},
            "name the protocol: --protocol bruce, modified-bruce, naughton, usafsam, or a file; see `tarsil "
            "protocols`"},
        Refused{{"--exercise", "LodeTreadmill@ttyNone", "--protocol", "bruce"},
                "there is no port \"ttyNone\"; see `tarsil ports`"},
        Refused{{"--exercise", "LodeTreadmill@/dev/null", "--protocol", "bruce", "--bp", "/dev/null"},
                "the port \"/dev/null\" cannot serve two devices"},
        Refused{{"--exercise", "LodeTreadmill@/dev/null", "--protocol", "bruce", "--spo2", "ttyNone"},
                "there is no port \"ttyNone\"; see `tarsil ports`"},
        Refused{{"--simulate", "--protocol", "nothing"},
                "cannot read the protocol \"nothing\": No such file or directory"},
        Refused{{"--simulate", "--protocol", "Brucee"},
                "cannot read the protocol \"Brucee\": No such file or directory; did you mean \"bruce\"?"},
        Refused{{"--simulate", "--protocol", "demo-bicycle"},
                "the protocol \"50 W steps, shortened\" is not for a device such as LodeTreadmill"},
        Refused{{"--exercise", "LodeTreadmill@/dev/null", "--speedup", "2"},
                "only a simulated station can live faster: add --simulate"},
        Refused{{"--simulate", "--exercise", "LodeTreadmill@ttyUSB0"},
                "a simulated station has its own ports: leave out --simulate or the port"},
        Refused{{"--simulate", "--bp", "ttyUSB0"},
                "a simulated station has its own ports: leave out --simulate or the port"},
        Refused{{"--fly"}, "run has no option --fly; see `tarsil run --help`"}));

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
  EXPECT_EQ(ended.errors, "tarsil: " + file + ":3: the speed must be from 0 to 25, not 99\n");
  EXPECT_THAT(ended.output, IsEmpty());
}

TEST(RunCommandTest, RefusesWhatTheModelsFramesDoNotCarryWithEveryLine) {
  const ScratchFolder folder;
  const std::string file = folder / "slow";
  std::ofstream(file) << "name Slow\ndevice treadmill\nstage 0:10 1.5 0\nstage 0:10 2 0\nstage 0:10 2 3\n";
  const auto ended = run({"run", "--simulate", "--exercise", "TM-400V2", "--protocol", file});
  EXPECT_EQ(ended.code, 2);
  EXPECT_THAT(ended.errors,
              StartsWith("tarsil: " + file + ": line 3, stage 1 of 3: speed 1.5 km/h: TM-400V2 carries "));
  EXPECT_THAT(ended.errors, HasSubstr("; line 5, stage 3 of 3: grade 3.0 %: TM-400V2 carries nothing"));
  EXPECT_THAT(ended.output, IsEmpty());
}

TEST(RunCommandTest, RefusesWhatIsAboveALimit) {
  const auto ended = run({"run", "--simulate", "--protocol", "bruce", "--max-speed", "8"});
  EXPECT_EQ(ended.code, 2);
  EXPECT_THAT(ended.errors, HasSubstr("stage 5 of 7: speed 8.05 km/h is above the limit of 8.0 km/h"));
  EXPECT_THAT(ended.output, IsEmpty());
}

// Output that cannot be written.

TEST(RunCommandTest, RefusesAFolderThatCannotBeMadeBeforeAnythingMoves) {
  const ScratchFolder folder;
  std::ofstream(folder / "file") << "x";
  const auto ended = runSimulated({"--protocol", "demo-treadmill", "--report", folder / "file/sessions"});
  EXPECT_EQ(ended.code, 7);
  EXPECT_EQ(ended.errors, "tarsil: cannot create a folder in " + (folder / "file/sessions").string() +
                              ": Not a directory\n");
  EXPECT_THAT(ended.output, Not(HasSubstr("start")));
}

TEST(RunCommandTest, GoesOnWhenTheJournalCannotGrowAndSaysSo) {
  const ScratchFolder folder;
  // Blocks of 512 bytes: full in the middle of the exercise.
  Program program("/bin/sh", {"-c", "ulimit -f 16; exec " TARSIL_PROGRAM
                                    " run --simulate --speedup 100000 --protocol demo-treadmill --report '" +
                                        folder.path().string() + "'"});
  const auto ended = program.wait();
  EXPECT_EQ(ended.code, 7);
  const auto session = onlySessionIn(folder.path());
  const std::string reason = "cannot write " + (session / "journal.jsonl").string() + ": File too large";
  EXPECT_EQ(ended.errors, "tarsil: " + reason + "\n");
  EXPECT_THAT(ended.output, HasSubstr("ALARM: " + reason));
  EXPECT_THAT(ended.output, HasSubstr("-------- recovery\n"));
  EXPECT_THAT(ended.output, HasSubstr(overLine));
  // What was written until then is whole, and used all the room there was.
  const std::string journal = textOf(session / "journal.jsonl");
  EXPECT_THAT(journal, EndsWith("}\n"));
  EXPECT_GT(journal.size(), 8192U - 200U);
  EXPECT_LE(journal.size(), 8192U);
}

/// A session whose output goes where this says; the folder has its files.
Program::Ended runWithOutputTo(const std::string& redirection, const ScratchFolder& folder) {
  Program program(
      "/bin/bash",
      {"-c", "exec " TARSIL_PROGRAM " run --simulate --speedup 100000 --protocol demo-treadmill --report '" +
                 folder.path().string() + "' " + redirection});
  return program.wait();
}

TEST(RunCommandTest, FinishesTheExerciseThoughNobodyTakesItsOutput) {
  // A full disk, a reader that has gone, none at all.
  for (const char* redirection : {"> /dev/full", "> >(exec true)", ">&-"}) {
    const ScratchFolder folder;
    const auto ended = runWithOutputTo(redirection, folder);
    EXPECT_EQ(ended.code, 6) << redirection;
    EXPECT_EQ(ended.errors, "tarsil: standard output takes no more lines; the exercise goes on\n")
        << redirection;
    const std::string csv = textOf(onlySessionIn(folder.path()) / "session.csv");
    EXPECT_THAT(
        csv,
        HasSubstr(
            ",session,failure,alarm,,,,ALARM: standard output takes no more lines; the exercise goes on\n"));
    EXPECT_THAT(csv, HasSubstr(",session,event,phase,1.6,0.0,,recovery\n"));
    EXPECT_THAT(csv, EndsWith(",session,event,over,,,,the session is over\n"));
  }
}

}  // namespace
}  // namespace tarsil::cli
