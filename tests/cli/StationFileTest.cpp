#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/cli-report/ScratchFolder.hpp"
#include "tests/cli/SimulatedProcess.hpp"

namespace tarsil::cli {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

/// Stations of a user of its own.
class StationFileTest : public testing::Test {
 protected:
  StationFileTest() {
    setenv("XDG_CONFIG_HOME", folder_.path().c_str(), 1);
    std::filesystem::create_directories(folder_ / "tarsil");
  }
  ~StationFileTest() override { unsetenv("XDG_CONFIG_HOME"); }

  std::string write(const std::string& text) const {
    std::ofstream(folder_ / "tarsil/lab1.station") << text;
    return folder_ / "tarsil/lab1.station";
  }

 private:
  ScratchFolder folder_;
};

TEST_F(StationFileTest, ARunTakesItsDevicesAndLimitsFromIt) {
  write("exercise LodeTreadmill /dev/null # none\nmax-speed 8\n");
  const auto ended = run({"run", "--station", "lab1", "--protocol", "bruce"});
  EXPECT_EQ(ended.code, 2);
  EXPECT_THAT(ended.errors, HasSubstr("stage 5 of 7: speed 8.05 km/h is above the limit of 8.0 km/h"));
  // What is typed counts more.
  const auto other = run({"run", "--station", "lab1", "--protocol", "bruce", "--max-speed", "9"});
  EXPECT_THAT(other.errors, HasSubstr("stage 7 of 7: speed 9.65 km/h is above the limit of 9.0 km/h"));
}

TEST_F(StationFileTest, ACheckGoesThroughItsDevices) {
  SimulatedProcess treadmill("LodeTreadmill");
  SimulatedProcess monitor("Tango");
  write("exercise LodeTreadmill " + treadmill.path() + "\nmonitor " + monitor.path() +
        "\noximeter bluetooth\n");
  const auto ended = run({"check", "--station", "lab1", "--seconds", "1"});
  EXPECT_EQ(ended.code, 0) << ended.errors;
  EXPECT_THAT(ended.output, HasSubstr("LodeTreadmill on " + treadmill.path() + "\n"));
  EXPECT_THAT(ended.output, HasSubstr("Tango on " + monitor.path() + "\n"));
}

TEST_F(StationFileTest, IsRefusedWithFileLineValueAndReason) {
  const auto refused = [&](const std::string& text) {
    const std::string path = write(text);
    const auto ended = run({"run", "--station", "lab1", "--protocol", "bruce"});
    EXPECT_EQ(ended.code, 2);
    EXPECT_THAT(ended.output, IsEmpty());
    const std::string beginning = "tarsil: " + path + ":";
    EXPECT_THAT(ended.errors, testing::StartsWith(beginning));
    return ended.errors.substr(std::min(beginning.size(), ended.errors.size()));
  };
  EXPECT_EQ(refused("\nmonitr x\n"), "2: unknown word \"monitr\"; did you mean \"monitor\"?\n");
  EXPECT_EQ(refused("exercise LodeTredmill x\n"),
            "1: no exercise device is called \"LodeTredmill\"; see `tarsil devices`; did you mean "
            "\"LodeTreadmill\"?\n");
  EXPECT_EQ(refused("exercise LodeTreadmill\n"), "1: exercise needs a model and a port\n");
  EXPECT_EQ(refused("max-speed 99\n"), "1: max-speed must be above 0 and at most 25, not 99\n");
  EXPECT_EQ(refused("max-speed fast\n"), "1: max-speed needs a number\n");
  EXPECT_EQ(refused("monitor a\nmonitor b\n"), "2: monitor was given before\n");
  EXPECT_EQ(refused("monitor a\n"), "1: there is no exercise device: exercise MODEL PORT\n");
}

TEST_F(StationFileTest, OneThatIsNotThereIsNamedWithThePlaces) {
  write("exercise LodeTreadmill /dev/null\n");
  const auto ended = run({"run", "--station", "lab", "--protocol", "bruce"});
  EXPECT_EQ(ended.code, 2);
  EXPECT_THAT(ended.errors, HasSubstr("there is no station \"lab\": neither "));
  EXPECT_THAT(ended.errors, EndsWith(" nor /etc/tarsil/lab.station; did you mean \"lab1\"?\n"));
  EXPECT_EQ(run({"run", "--simulate", "--station", "lab1"}).errors,
            "tarsil: a simulated station has its own ports: leave out --simulate or --station\n");
  EXPECT_EQ(run({"complete", "run", "--station", ""}).output, "lab1\n");
}

}  // namespace
}  // namespace tarsil::cli
