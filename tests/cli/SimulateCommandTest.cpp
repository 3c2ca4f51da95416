#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "tests/cli/SimulatedProcess.hpp"
#include "tests/cli/TrackMasterHost.hpp"

namespace tarsil::cli {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;
using namespace track_master;

TEST(SimulateCommandTest, ListsModelsAndFaults) {
  const auto ended = run({"simulate", "--list"});
  EXPECT_EQ(ended.code, 0);
  EXPECT_THAT(ended.output, StartsWith("MODEL              FAULTS\n"));
  EXPECT_THAT(ended.output, HasSubstr("\nMEDXINGPort        silence, noise, drop\n"));
  EXPECT_THAT(ended.output, HasSubstr("\nTrackMaster        silence, noise, drop, refuse="));
}

TEST(SimulateCommandTest, RunsUntilInterrupted) {
  for (const int signal : {SIGINT, SIGTERM}) {
    Program program({"simulate", "LodeTreadmill"});
    EXPECT_THAT(program.readLine(), StartsWith("/dev/pts/"));
    program.signal(signal);
    const auto ended = program.wait();
    EXPECT_EQ(ended.code, 0);
    EXPECT_THAT(ended.errors, IsEmpty());
  }
}

TEST(SimulateCommandTest, ObeysOrdersAndEndsWithThem) {
  SimulatedProcess device("Tango", {"--physics-effort", "5"});
  EXPECT_EQ(device.status(), device.status());
  device.order("fly");
  const auto ended = device.program().wait();
  EXPECT_EQ(ended.code, 0);
  EXPECT_EQ(ended.errors, "not an order: fly\n");
}

class SimulatedCableTest : public testing::TestWithParam<const char*> {};

TEST_P(SimulatedCableTest, CarriesAnswers) {
  SimulatedProcess device("TrackMaster", {"--cable", GetParam()});
  const TrackMasterHost host(device.path());
  host.ask(startBelt);
  EXPECT_THAT(host.read(1), ElementsAre(started));
  host.ask(requestSpeed);
  EXPECT_EQ(host.read(standing.size()), standing);
}

INSTANTIATE_TEST_SUITE_P(All, SimulatedCableTest,
                         testing::Values("wire", "adapter", "gentle", "adapter,delay=20ms,split=1",
                                         "latency=5ms,packet=2,join=1/2"));

TEST(SimulateCommandTest, ObeysOrdersToTheCable) {
  SimulatedProcess device("TrackMaster", {"--cable", "wire"});
  const TrackMasterHost host(device.path());
  device.order("lose replies");
  host.ask(requestSpeed);
  EXPECT_THAT(host.read(4), ElementsAre(0xD1, '0', '0', '0'));
  device.order("mute replies");
  device.status();
  host.ask(startBelt);
  device.waitFor("belt running");
  device.order("unmute both");
  device.status();
  host.ask(requestSpeed);
  EXPECT_EQ(host.read(standing.size()), standing);
}

TEST(SimulateCommandTest, WhatWasStoppedAtTheMachineStandsUntilItIsStartedThere) {
  SimulatedProcess device("TrackMaster");
  const TrackMasterHost host(device.path());
  host.ask(startBelt);
  EXPECT_THAT(host.read(1), ElementsAre(started));
  device.order("press stop");
  device.waitFor("belt stopped");
  host.ask(startBelt);
  EXPECT_THAT(host.read(1), ElementsAre(disabled));
  device.order("press start");
  device.status();
  host.ask(startBelt);
  EXPECT_THAT(host.read(1), ElementsAre(started));

  device.order("history");
  std::vector<std::string> states;
  for (std::string line = device.program().readLine(); !line.empty(); line = device.program().readLine()) {
    states.push_back(line.substr(line.find(", ")));
  }
  const std::string atRest = ", asked 0.0 km/h 0.0 %, actual 0.0 km/h 0.0 %, ";
  EXPECT_THAT(states,
              ElementsAre(atRest + "stopped", atRest + "running", atRest + "stopped", atRest + "running"));
  device.order("press emergency");
  EXPECT_EQ(device.program().wait().errors, "not an order: press emergency\n");
}

TEST(SimulateCommandTest, AListenerHearsNothingOfTheTimeBeforeItOpened) {
  SimulatedProcess device("TrackMaster", {"--cable", "wire"});
  {
    const TrackMasterHost host(device.path());
    host.ask(startBelt);
    host.waitForAnswer();
  }
  // Its loop has gone round, and seen the port closed, between the two.
  device.status();
  device.status();
  const TrackMasterHost next(device.path());
  next.ask(requestSpeed);
  EXPECT_EQ(next.read(standing.size()), standing);
}

TEST(SimulateCommandTest, ComesBackAtAnotherTerminalWithTheBeltAsItWasLeft) {
  SimulatedProcess device("TrackMaster");
  const TrackMasterHost host(device.path());
  host.ask(startBelt);
  EXPECT_THAT(host.read(1), ElementsAre(started));
  device.order("disconnect");
  EXPECT_THAT(host.read(), IsEmpty());
  EXPECT_THAT(device.status(), StartsWith("belt running"));
  device.order("connect");
  const std::string path = device.program().readLine();
  EXPECT_THAT(path, StartsWith("/dev/pts/"));
  const TrackMasterHost next(path);
  next.ask(requestSpeed);
  EXPECT_EQ(next.read(standing.size()), standing);
}

TEST(SimulateCommandTest, RefusesWhatItDoesNotKnow) {
  const auto refuses = [](const std::vector<std::string>& arguments, const std::string& pattern) {
    const auto ended = run(arguments);
    EXPECT_EQ(ended.code, 2);
    EXPECT_THAT(ended.output, IsEmpty());
    EXPECT_THAT(ended.errors, MatchesRegex("tarsil: " + pattern + "\n"));
  };
  refuses({"simulate", "Bike"}, "no model \"Bike\" is simulated; see --list");
  refuses({"simulate", "Tango", "--fault", "fire"}, "Tango has no fault \"fire\"; see --list");
  refuses({"simulate", "Tango", "--cable", "lose=2"},
          "cable: \"lose=2\" has no chance from 0 to 1, such as 1/200");
  refuses({"simulate", "Tango", "--physics-effort", "0"}, ".*physics-effort.*");
}

}  // namespace
}  // namespace tarsil::cli
