#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "tests/cli-report/ScratchFolder.hpp"
#include "tests/cli/PlayedDevice.hpp"
#include "tests/cli/SimulatedProcess.hpp"

namespace tarsil::cli {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr const char* longWalk = "name Walk\ndevice treadmill\nstage 2:00 2 5\n";
constexpr const char* longRide = "name Ride\ndevice bicycle\nstage 2:00 50\n";

/// `tarsil run` on devices that live outside of it, in real time.
class RunOnDevicesTest : public testing::Test {
 protected:
  std::vector<std::string> arguments(const std::string& exercise, const std::string& protocol,
                                     const std::vector<std::string>& more = {}) const {
    std::ofstream(folder_ / "protocol") << protocol;
    std::vector<std::string> words{"run", "--exercise", exercise, "--protocol", folder_ / "protocol"};
    words.insert(words.end(), more.begin(), more.end());
    if (std::find(more.begin(), more.end(), "--report") == more.end()) words.emplace_back("--no-report");
    return words;
  }

  /// Reads the output up to the line that has this text.
  static void readUpTo(Program& program, const std::string& text) {
    while (program.readLine().find(text) == std::string::npos) continue;
  }

  /// The session's own folder below `report`.
  std::filesystem::path session() const {
    return std::filesystem::directory_iterator(folder_ / "report")->path();
  }

  ScratchFolder folder_;
};

// Every model over a real line, as a process of its own.

struct Driven {
  const char* model;
  const char* protocol;
  /// What the device says of itself while it is driven, and after it.
  const char* during;
  const char* after;
};

class DrivenModelTest : public RunOnDevicesTest, public testing::WithParamInterface<Driven> {};

TEST_P(DrivenModelTest, DoesAsItIsTold) {
  const auto& [model, protocol, during, after] = GetParam();
  SimulatedProcess device(model);
  Program program(arguments(std::string(model) + "@" + device.path(), protocol));
  device.waitFor(during);
  const auto ended = program.wait();
  EXPECT_EQ(ended.code, 0) << ended.output;
  EXPECT_THAT(ended.errors, IsEmpty());
  EXPECT_THAT(device.status(), HasSubstr(after));
}

constexpr const char* walk = "name Walk\ndevice treadmill\nstage 0:05 2 2\n";
constexpr const char* levelWalk = "name Walk\ndevice treadmill\nstage 0:05 2 0\n";
constexpr const char* steepWalk = "name Walk\ndevice treadmill\nstage 0:18 2 16\n";
constexpr const char* ride = "name Ride\ndevice bicycle\nstage 0:05 50\n";
INSTANTIATE_TEST_SUITE_P(
    All, DrivenModelTest,
    testing::Values(Driven{"TM-400V2", levelWalk, "belt running, 2.0 km/h, grade 0 %, unreadable bytes 0",
                           "belt stopped"},
                    Driven{"LodeOEMTreadmill", steepWalk, "belt running, 2.0 km/h, grade ", "belt stopped"},
                    Driven{"LodeTreadmill", walk, "belt running, 2.0 km/h, grade 2.0 %", "0.0 km/h"},
                    Driven{"TrackMaster", walk, "belt running, 1.9 km/h, grade 2.0 %",
                           "belt stopped, 0.0 km/h"},
                    Driven{"ErgolineK2.4P10", ride, "pedals turning, 50 W", "pedals still"},
                    Driven{"ErgosanaK4.8P10", ride, "pedals turning, 50 W", "pedals still"},
                    Driven{"ErgometricsK2.4P3", ride, "pedals turning, 50 W", "pedals still"}));

TEST_F(RunOnDevicesTest, DrivesAWholeStation) {
  SimulatedProcess treadmill("LodeTreadmill");
  SimulatedProcess monitor("Tango");
  SimulatedProcess oximeter("MEDXINGPort");
  const auto ended =
      Program(arguments("LodeTreadmill@" + treadmill.path(),
                        "name Walk\ndevice treadmill\nstage 0:26 2 2\nrecovery 0:20 1 0\n",
                        {"--bp", monitor.path(), "--spo2", oximeter.path(), "--report", folder_ / "report"}))
          .wait();
  EXPECT_EQ(ended.code, 0) << ended.output;
  EXPECT_THAT(ended.errors, IsEmpty());
  const std::string csv = textOf(session() / "session.csv");
  EXPECT_THAT(csv, HasSubstr(",exercise,answered,load,2.0,2.0,,"));
  EXPECT_THAT(csv, HasSubstr(",pressure,answered,pressure,1"));
  EXPECT_THAT(csv, HasSubstr(",oximeter,answered,saturation,9"));
}

// Ports and devices that are not as they should be.

TEST_F(RunOnDevicesTest, ASilentDeviceIsNotStoodOn) {
  SimulatedProcess device("LodeTreadmill", {"--fault", "silence"});
  const auto ended = run(arguments("LodeTreadmill@" + device.path(), longWalk));
  EXPECT_EQ(ended.code, 3);
  EXPECT_EQ(ended.errors, "tarsil: no answer from: exercise\n");
  EXPECT_THAT(ended.output, Not(HasSubstr("  start ")));
  EXPECT_THAT(device.status(), HasSubstr("belt stopped, 0.0 km/h"));
}

TEST_F(RunOnDevicesTest, APortThatIsNoneCannotBeOpened) {
  const auto ended = run(arguments("LodeTreadmill@/nowhere/tty", longWalk));
  EXPECT_EQ(ended.code, 3);
  EXPECT_EQ(ended.errors,
            "tarsil: /nowhere/tty: there is no such port now\n"
            "tarsil: cannot open /nowhere/tty (exercise): there is no such port now\n");
  EXPECT_THAT(ended.output, HasSubstr("FAILURE: /nowhere/tty: there is no such port now"));
}

TEST_F(RunOnDevicesTest, AMissingBluetoothAdapterIsNotMadeUpFor) {
  std::error_code noFolder;
  const std::filesystem::directory_iterator adapters("/sys/class/bluetooth", noFolder);
  if (!noFolder && begin(adapters) != end(adapters)) GTEST_SKIP() << "this machine has a Bluetooth adapter";
  SimulatedProcess device("LodeTreadmill");
  const auto ended = run(arguments("LodeTreadmill@" + device.path(), longWalk, {"--spo2", "bluetooth"}));
  EXPECT_EQ(ended.code, 3);
  EXPECT_EQ(ended.errors, "tarsil: there is no Bluetooth adapter\n");
  EXPECT_THAT(ended.output, Not(HasSubstr("  start ")));
}

TEST_F(RunOnDevicesTest, APortOfAnotherProgramCannotBeOpened) {
  SimulatedProcess device("LodeTreadmill");
  const int other = open(device.path().c_str(), O_RDWR | O_NOCTTY);
  ASSERT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
  const auto ended = run(arguments("LodeTreadmill@" + device.path(), longWalk));
  EXPECT_EQ(ended.code, 3);
  EXPECT_THAT(ended.errors,
              StartsWith("tarsil: " + device.path() + ": another program has it open: tests-cli"));
  EXPECT_THAT(ended.errors, HasSubstr("\ntarsil: cannot open " + device.path() +
                                      " (exercise): another program has it open"));
  close(other);
}

TEST_F(RunOnDevicesTest, ADeviceThatIsPulledOutEndsTheSession) {
  SimulatedProcess device("LodeTreadmill");
  Program program(arguments("LodeTreadmill@" + device.path(), longWalk, {"--report", folder_ / "report"}));
  readUpTo(program, "set 2.00 km/h, ");
  device.order("disconnect");
  const auto ended = program.wait();
  EXPECT_EQ(ended.code, 4);
  EXPECT_EQ(ended.errors, "tarsil: the exercise's port has vanished\n");
  EXPECT_THAT(ended.output, HasSubstr("-------- the session is over\n"));
  EXPECT_THAT(textOf(session() / "session.csv"), EndsWith(",session,event,over,,,,the session is over\n"));
}

TEST_F(RunOnDevicesTest, AnOximeterThatIsPulledOutStopsTheBeltWhereItIsAskedFor) {
  SimulatedProcess treadmill("LodeTreadmill");
  SimulatedProcess oximeter("MEDXINGPort");
  Program program(
      arguments("LodeTreadmill@" + treadmill.path(), longWalk, {"--strict", "--spo2", oximeter.path()}));
  readUpTo(program, "set 2.00 km/h, ");
  oximeter.order("disconnect");
  const auto ended = program.wait();
  EXPECT_EQ(ended.code, 4);
  EXPECT_EQ(ended.errors, "tarsil: the oximeter's port has vanished\n");
  EXPECT_THAT(treadmill.status(), HasSubstr("0.0 km/h"));
}

// Signals.

class SignalTest : public RunOnDevicesTest, public testing::WithParamInterface<int> {};

TEST_P(SignalTest, StopsTheBeltBeforeTheProgramLeaves) {
  SimulatedProcess device("LodeTreadmill");
  Program program(arguments("LodeTreadmill@" + device.path(), longWalk));
  readUpTo(program, "set 2.00 km/h, ");
  device.waitFor("belt running, 2.0 km/h");
  program.signal(GetParam());
  const auto ended = program.wait();
  EXPECT_EQ(ended.code, 5);
  EXPECT_EQ(ended.errors, "tarsil: interrupted\n");
  EXPECT_THAT(device.status(), HasSubstr("0.0 km/h"));
}

INSTANTIATE_TEST_SUITE_P(All, SignalTest, testing::Values(SIGINT, SIGTERM));

TEST_F(RunOnDevicesTest, ASecondInterruptionWaitsForNothing) {
  SimulatedProcess device("LodeTreadmill");
  Program program(arguments("LodeTreadmill@" + device.path(), longWalk));
  readUpTo(program, "set 2.00 km/h, ");
  // The belt is told to stop, and nothing tells that it stands.
  device.order("silence on");
  program.signal(SIGINT);
  readUpTo(program, "interrupted");
  program.signal(SIGINT);
  const auto ended = program.wait();
  EXPECT_EQ(ended.code, 5);
  EXPECT_THAT(ended.output, HasSubstr("interrupted again: closing at once"));
  device.waitFor("0.0 km/h");
}

TEST_F(RunOnDevicesTest, AnInterruptionDuringTheCheckMovesNothing) {
  SimulatedProcess device("LodeTreadmill", {"--fault", "silence"});
  Program program(arguments("LodeTreadmill@" + device.path(), longWalk));
  readUpTo(program, "is open");
  program.signal(SIGINT);
  const auto ended = program.wait();
  EXPECT_EQ(ended.code, 5);
  EXPECT_THAT(ended.output, Not(HasSubstr("  start ")));
}

TEST_F(RunOnDevicesTest, AnOximeterThatIsPulledOutIsMissedAndTheExerciseGoesOn) {
  SimulatedProcess treadmill("LodeTreadmill");
  SimulatedProcess oximeter("MEDXINGPort");
  Program program(arguments("LodeTreadmill@" + treadmill.path(),
                            "name Walk\ndevice treadmill\nstage 0:10 2 0\n", {"--spo2", oximeter.path()}));
  readUpTo(program, "set 2.00 km/h, ");
  oximeter.order("disconnect");
  const auto ended = program.wait();
  EXPECT_EQ(ended.code, 6);
  EXPECT_THAT(ended.output, HasSubstr("the device behind it is gone"));
  EXPECT_THAT(ended.output, HasSubstr("the device reports that it stands"));
}

// A belt that moves.

/// As a host left it that is gone, on a machine without a watcher: the belt runs at 5 km/h.
void setMoving(const std::string& path) {
  const std::string startAndSpeed("\x02\x01\x00\xa0\x50\x03\x02\x05\x02\x00\x32\x59\x19\x03", 14);
  const int line = open(path.c_str(), O_RDWR | O_NOCTTY);
  termios modes{};
  tcgetattr(line, &modes);
  cfmakeraw(&modes);
  tcsetattr(line, TCSANOW, &modes);
  EXPECT_EQ(write(line, startAndSpeed.data(), startAndSpeed.size()),
            static_cast<ssize_t>(startAndSpeed.size()));
  close(line);
}

TEST_F(RunOnDevicesTest, ABeltThatMovesAlreadyIsNotStartedOn) {
  SimulatedProcess device("LodeTreadmill");
  setMoving(device.path());
  device.waitFor("belt running, 5.0 km/h");
  const auto ended = run(arguments("LodeTreadmill@" + device.path(), longWalk));
  EXPECT_EQ(ended.code, 3);
  EXPECT_EQ(ended.errors, "tarsil: LodeTreadmill has not been seen to stand\n");
  EXPECT_THAT(ended.output, Not(HasSubstr("  start ")));
}

TEST_F(RunOnDevicesTest, ABeltThatAKilledHostLeftIsStoppedBeforeTheNextExercise) {
  SimulatedProcess device("LodeTreadmill");
  {
    Program killed(arguments("LodeTreadmill@" + device.path(), longWalk));
    device.waitFor("belt running");
    killed.signal(SIGKILL);
  }
  device.waitFor("0.0 km/h");
  const std::string told = "the watcher process of an earlier host has sent the stop";
  const auto next = run(arguments("LodeTreadmill@" + device.path(), walk));
  EXPECT_EQ(next.code, 0) << next.output << next.errors;
  EXPECT_THAT(next.output, HasSubstr(told));
  const auto third = run(arguments("LodeTreadmill@" + device.path(), walk));
  EXPECT_EQ(third.code, 0) << third.output << third.errors;
  EXPECT_THAT(third.output, Not(HasSubstr(told)));
}

TEST_F(RunOnDevicesTest, AKilledHostsDeviceThatIsSilentIsNotStoodOn) {
  SimulatedProcess device("LodeTreadmill");
  {
    Program killed(arguments("LodeTreadmill@" + device.path(), longWalk));
    device.waitFor("belt running");
    killed.signal(SIGKILL);
  }
  device.order("silence on");
  const auto ended = run(arguments("LodeTreadmill@" + device.path(), longWalk));
  EXPECT_EQ(ended.code, 8);
  // On a slow machine the killed host's watcher may still have the port when it is opened, which is told
  // first.
  EXPECT_THAT(ended.errors, EndsWith("tarsil: LodeTreadmill was not seen to stop\n"));
  EXPECT_THAT(ended.output, Not(HasSubstr("  start ")));
}

TEST_F(RunOnDevicesTest, StopStopsABeltThatSomebodyLeftRunning) {
  SimulatedProcess device("LodeTreadmill");
  setMoving(device.path());
  device.waitFor("belt running, 5.0 km/h");
  const auto ended = run({"stop", "LodeTreadmill@" + device.path()});
  EXPECT_EQ(ended.code, 0) << ended.errors;
  EXPECT_THAT(ended.errors, IsEmpty());
  EXPECT_THAT(ended.output, HasSubstr("the device reports that it stands"));
  EXPECT_THAT(device.status(), HasSubstr("0.0 km/h"));
}

TEST_F(RunOnDevicesTest, StopSaysThatItSawNothingOfADeviceThatIsSilent) {
  SimulatedProcess device("LodeTreadmill", {"--fault", "silence"});
  const auto ended = run({"stop", "LodeTreadmill@" + device.path(), "--patience", "3"});
  EXPECT_EQ(ended.code, 8);
  EXPECT_EQ(ended.errors, "tarsil: LodeTreadmill was not seen to stand: look at it\n");
}

TEST_F(RunOnDevicesTest, StopSaysThatAModelDoesNotReportWhetherItStands) {
  SimulatedProcess device("TM-400V2");
  const auto ended = run({"stop", "TM-400V2@" + device.path()});
  EXPECT_EQ(ended.code, 0) << ended.errors;
  EXPECT_THAT(ended.output, HasSubstr("this model does not report whether it stands"));
}

TEST_F(RunOnDevicesTest, StopSaysWhyAPortDoesNotOpen) {
  const auto ended = run({"stop", "LodeTreadmill@/nowhere/tty", "--patience", "2"});
  EXPECT_EQ(ended.code, 3);
  EXPECT_EQ(ended.errors, "tarsil: /nowhere/tty: there is no such port now\n");
  EXPECT_EQ(run({"stop", "Bike@/nowhere/tty"}).code, 2);
  EXPECT_EQ(run({"stop", "LodeTreadmill"}).code, 2);
}

// Replies that would stop or hang an application: they reach no driver, and the check finds nobody.

TEST_F(RunOnDevicesTest, RepliesThatWouldStopTheProcessAreNone) {
  PlayedDevice device([&](std::string& received) -> std::optional<std::string> {
    const std::size_t end = received.find('\r');
    if (end == std::string::npos) return std::nullopt;
    const std::string command = received.substr(0, end);
    received.erase(0, end + 1);
    return command.ends_with('W') ? "Bxyz\r" : "";
  });
  const auto ended = run(arguments("ErgolineK2.4P10@" + device.path(), longRide));
  device.finish();
  EXPECT_EQ(ended.code, 3);
  EXPECT_EQ(ended.errors, "tarsil: no answer from: exercise\n");
}

TEST_F(RunOnDevicesTest, NoiseInTheMiddleOfTheExerciseDoesNoHarm) {
  SimulatedProcess device("TrackMaster");
  Program program(arguments("TrackMaster@" + device.path(), "name Walk\ndevice treadmill\nstage 0:15 2 0\n"));
  device.waitFor("belt running, 1.9 km/h");
  device.order("noise on");
  const auto ended = program.wait();
  EXPECT_THAT(ended.output, HasSubstr("bytes that no reply contains were left out"));
  EXPECT_THAT(device.status(), HasSubstr("belt stopped, 0.0 km/h"));
}

}  // namespace
}  // namespace tarsil::cli
