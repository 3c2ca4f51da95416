#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "tests/cli/SimulatedProcess.hpp"
#include "tests/cli/TerminalProgram.hpp"

namespace tarsil::cli {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;

void readUpTo(Program& program, const std::string& text) {
  while (program.readLine().find(text) == std::string::npos) continue;
}

class ConsoleCommandTest : public testing::Test {
 protected:
  std::vector<std::string> arguments() const { return {"console", "LodeTreadmill@" + device_.path()}; }
  void expectStandstill() { EXPECT_THAT(device_.status(), HasSubstr("belt stopped, 0.0 km/h")); }

  SimulatedProcess device_{"LodeTreadmill"};
};

TEST_F(ConsoleCommandTest, CommandsTheDeviceAndStopsItAtTheEndOfItsInput) {
  const auto ended = run(arguments(),
                         "laod\nload 2 x\nload 99 0\ntraffic on\nstart\nload 1 0\nwait 2\nvalues\n"
                         "traffic off\n");
  EXPECT_EQ(ended.code, 0) << ended.errors;
  EXPECT_THAT(ended.errors, IsEmpty());
  EXPECT_THAT(ended.output, HasSubstr("\nthere is no command \"laod\"; see help; did you mean \"load\"?\n"));
  EXPECT_THAT(ended.output, HasSubstr("\n\"x\" is no number\n"));
  EXPECT_THAT(ended.output,
              ContainsRegex("\nrefused: speed 99.0 km/h: LodeTreadmill carries 0 to 25.5 km/h"));
  EXPECT_THAT(ended.output, ContainsRegex("\n +0:0[0-9] > 02 01 00 a0 50 03\n"));
  EXPECT_THAT(ended.output, ContainsRegex("\n +0:0[0-9] < 02 "));
  EXPECT_THAT(ended.output, ContainsRegex("\n  1.0 km/h 0.0 % \\([0-9.]+ s\\)\n"));
  EXPECT_THAT(ended.output, HasSubstr("  exercise  the device reports that it stands\n"));
  expectStandstill();
}

TEST_F(ConsoleCommandTest, StopsTheBeltBeforeASignalEndsIt) {
  Program console(arguments());
  console.write("start\nload 1 0\n");
  device_.waitFor("belt running");
  console.signal(SIGTERM);
  readUpTo(console, "the device reports that it stands");
  const auto ended = console.wait();
  EXPECT_EQ(ended.code, 5);
  EXPECT_EQ(ended.errors, "tarsil: interrupted\n");
  expectStandstill();
}

TEST_F(ConsoleCommandTest, OnATerminalShowsWhatTheDeviceSaysAndStopsItOnCtrlC) {
  TerminalProgram console(arguments());
  console.waitFor("LodeTreadmill 0.0 km/h 0.0 % (");
  console.press("start\r");
  device_.waitFor("belt running");
  console.press("load 1 0\r");
  console.waitFor("LodeTreadmill 1.0 km/h 0.0 % (");
  console.press("\x03");
  console.waitFor("the device reports that it stands");
  EXPECT_EQ(console.wait(), 5);
  EXPECT_EQ(console.modes().c_lflag & (ICANON | ECHO), static_cast<tcflag_t>(ICANON | ECHO));
  expectStandstill();
}

TEST(ConsoleCommandOnNoDeviceTest, SaysWhyThereIsNone) {
  const auto closed = run({"console", "LodeTreadmill@/nowhere/tty"});
  EXPECT_EQ(closed.code, 3);
  EXPECT_EQ(closed.errors, "tarsil: /nowhere/tty: there is no such port now\n");
  EXPECT_EQ(run({"console", "Tango@/nowhere/tty"}).errors,
            "tarsil: no exercise device is called \"Tango\"; see `tarsil devices`\n");
  EXPECT_EQ(run({"console", "LodeTreadmill"}).errors, "tarsil: name the device and its port: MODEL@PORT\n");
}

}  // namespace
}  // namespace tarsil::cli
