#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "tests/cli/SimulatedProcess.hpp"

namespace tarsil::cli {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

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

TEST(SimulateCommandTest, RefusesWhatItDoesNotKnow) {
  const auto refuses = [](const std::vector<std::string>& arguments, const std::string& pattern) {
    const auto ended = run(arguments);
    EXPECT_EQ(ended.code, 2);
    EXPECT_THAT(ended.output, IsEmpty());
    EXPECT_THAT(ended.errors, MatchesRegex("tarsil: " + pattern + "\n"));
  };
  refuses({"simulate", "Bike"}, "no model \"Bike\" is simulated; see --list");
  refuses({"simulate", "Tango", "--fault", "fire"}, "Tango has no fault \"fire\"; see --list");
  refuses({"simulate", "Tango", "--physics-effort", "0"}, ".*physics-effort.*");
}

}  // namespace
}  // namespace tarsil::cli
