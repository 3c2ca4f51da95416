#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/cli-report/ScratchFolder.hpp"
#include "tests/cli/SimulatedProcess.hpp"
#include "tests/cli/TerminalProgram.hpp"

namespace tarsil::cli {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

constexpr const char* leaveScreen = "\x1b[?25h\x1b[?1049l";

/// The whole program with its live view, on a device of its own.
class RunInTerminalTest : public testing::Test {
 protected:
  RunInTerminalTest() { program_.waitFor("\x1b[?1049h\x1b[?25l"); }

  SimulatedProcess device_{"LodeTreadmill"};
  TerminalProgram program_{
      {"run", "--no-report", "--exercise", "LodeTreadmill@" + device_.path(), "--protocol", "bruce"}};
};

TEST_F(RunInTerminalTest, KeysHoldAdvanceAndStop) {
  program_.waitFor(" warm-up  ");
  program_.press("h");
  program_.waitFor("HELD");
  program_.waitFor("stage held");
  program_.press("h");
  program_.waitFor("stage released");
  program_.press("n");
  program_.waitFor(" stage 1 of 7  ");
  program_.waitFor("reported");
  program_.press("s");
  program_.waitFor("stopping: waiting until the device stands");
  EXPECT_EQ(program_.wait(), 5);
  EXPECT_THAT(device_.status(), HasSubstr("0.0 km/h"));
}

TEST_F(RunInTerminalTest, CtrlCStopsTheBeltAndPutsTheTerminalBack) {
  EXPECT_EQ(program_.modes().c_lflag & (ICANON | ECHO), 0U);
  program_.waitFor(" warm-up  ");
  device_.waitFor("belt running, 1.6 km/h");
  program_.press("\x03");
  EXPECT_EQ(program_.wait(), 5);
  EXPECT_THAT(device_.status(), HasSubstr("0.0 km/h"));
  EXPECT_EQ(program_.modes().c_lflag & (ICANON | ECHO), static_cast<tcflag_t>(ICANON | ECHO));
  // The last picture stays, and the reason is not lost with the screen.
  const std::string left = program_.written().substr(program_.written().rfind(leaveScreen));
  EXPECT_THAT(left, HasSubstr("Bruce on LodeTreadmill"));
  EXPECT_THAT(left, EndsWith("tarsil: interrupted\r\n"));
}

TEST_F(RunInTerminalTest, GoesOnWhenItsTerminalIsClosed) {
  program_.waitFor(" warm-up  ");
  device_.waitFor("belt running, 1.6 km/h");
  program_.signal(SIGHUP);
  program_.waitFor("ALARM: the terminal is gone; the exercise goes on");
  EXPECT_THAT(device_.status(), HasSubstr("belt running, 1.6 km/h"));
  // Somebody who is still there can end it.
  program_.signal(SIGTERM);
  EXPECT_EQ(program_.wait(), 5);
  EXPECT_THAT(device_.status(), HasSubstr("0.0 km/h"));
}

TEST(RunWhoseTerminalIsGoneTest, GoesOnToItsEndAndKeepsWhatHappened) {
  const ScratchFolder folder;
  const std::string protocol = folder / "protocol";
  std::ofstream(protocol) << "name Walk\ndevice treadmill\nstage 0:08 2 0\nrecovery 0:04 1 0\n";
  SimulatedProcess device("LodeTreadmill");
  TerminalProgram program({"run", "--exercise", "LodeTreadmill@" + device.path(), "--protocol", protocol,
                           "--report", folder / "report", "--patient", "P17", "--operator", "O"});
  device.waitFor("belt running, 2.0 km/h");
  program.hangUp();
  EXPECT_EQ(program.wait(), 6);
  EXPECT_THAT(device.status(), HasSubstr("belt stopped, 0.0 km/h"));
  const auto session = std::filesystem::directory_iterator(folder / "report")->path();
  EXPECT_THAT(textOf(session / "report.html"),
              HasSubstr("ALARM: the terminal is gone; the exercise goes on"));
  const std::string csv = textOf(session / "session.csv");
  const std::size_t gone =
      csv.find(",session,failure,alarm,,,,ALARM: the terminal is gone; the exercise goes on\n");
  const std::size_t recovery = csv.find(",session,event,phase,1.0,0.0,,recovery\n");
  EXPECT_LT(gone, recovery);
  EXPECT_NE(recovery, std::string::npos);
  EXPECT_THAT(csv, EndsWith(",session,event,over,,,,the session is over\n"));
}

TEST(RunInTerminalBeforeItBeginsTest, AsksForPatientAndOperatorThatWereNotGiven) {
  const ScratchFolder folder;
  TerminalProgram program({"run", "--simulate", "--speedup", "100000", "--protocol", "demo-treadmill",
                           "--report", folder.path().string()});
  program.waitFor("Patient's id (Enter skips it): ");
  program.press("P17\n");
  program.waitFor("Operator (Enter skips it): ");
  program.press("\n");
  EXPECT_EQ(program.wait(), 0);
  const auto session = std::filesystem::directory_iterator(folder.path())->path();
  const std::string page = textOf(session / "report.html");
  EXPECT_THAT(page, HasSubstr("<dt>Patient</dt><dd>P17</dd>"));
  EXPECT_THAT(page, Not(HasSubstr("<dt>Operator</dt>")));
  EXPECT_THAT(page, HasSubstr("<dt>Program</dt><dd>tarsil "));
}

TEST(RunInDumbTerminalTest, PrintsLines) {
  setenv("TERM", "dumb", 1);
  TerminalProgram program({"run", "--simulate", "--speedup", "100000", "--protocol", "demo-treadmill"});
  setenv("TERM", "xterm", 1);
  EXPECT_EQ(program.wait(), 0);
  EXPECT_THAT(program.written(), HasSubstr("-------- the session is over\r\n"));
  EXPECT_THAT(program.written(), Not(HasSubstr("\x1b")));
}

}  // namespace
}  // namespace tarsil::cli
