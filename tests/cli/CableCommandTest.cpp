#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "tests/cli/Program.hpp"
#include "tests/cli/SimulatedProcess.hpp"
#include "tests/cli/TrackMasterHost.hpp"

namespace tarsil::cli {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using namespace track_master;

/// `tarsil cable` as a process of its own, between a simulated TrackMaster and its host.
class CableCommandTest : public testing::TestWithParam<const char*> {
 protected:
  SimulatedProcess device_{"TrackMaster", {"--cable", "wire"}};
};

/// The cable; it has no more orders than `count` and those that break it.
class CableProcess {
 public:
  CableProcess(const SimulatedProcess& device, const std::string& cable)
      : program_({"cable", "TrackMaster@" + device.path(), "--cable", cable, "--orders"}),
        path_(program_.readLine()) {}

  const std::string& path() const { return path_; }
  void order(const std::string& order) const { program_.write(order + "\n"); }
  /// Comes after all that was ordered before.
  std::string count() {
    order("count");
    return program_.readLine();
  }
  Program& program() { return program_; }

 private:
  Program program_;
  std::string path_;
};

TEST_P(CableCommandTest, CarriesBothWays) {
  const CableProcess cable(device_, GetParam());
  EXPECT_THAT(cable.path(), StartsWith("/dev/pts/"));
  EXPECT_NE(cable.path(), device_.path());
  const TrackMasterHost host(cable.path());
  host.ask(startBelt);
  EXPECT_THAT(host.read(1), ElementsAre(started));
  EXPECT_THAT(device_.status(), StartsWith("belt running"));
  host.ask(requestSpeed);
  EXPECT_EQ(host.read(standing.size()), standing);
}

INSTANTIATE_TEST_SUITE_P(All, CableCommandTest,
                         testing::Values("wire", "adapter", "gentle", "adapter,delay=20ms,split=1",
                                         "latency=5ms,packet=2,join=1/2"));

using CableOrdersTest = CableCommandTest;

TEST_F(CableOrdersTest, BreakIt) {
  CableProcess cable(device_, "wire");
  const TrackMasterHost host(cable.path());
  cable.order("lose commands");
  cable.count();
  host.ask({0xA1, 0xA1});
  EXPECT_THAT(host.read(1), ElementsAre(started));
  cable.order("mute replies");
  EXPECT_EQ(cable.count(),
            "replies: 1 bytes, 0 lost, 0 doubled, 0 changed, 0 added; "
            "commands: 2 bytes, 1 lost, 0 doubled, 0 changed, 0 added");
  host.ask({0xA2});
  device_.waitFor("belt stopped");
  // Its answer is on the way, and lost when it has come so far.
  while (cable.count().find("replies: 2 bytes, 1 lost") == std::string::npos) {
  }
  cable.order("unmute both");
  cable.count();
  host.ask(requestSpeed);
  EXPECT_EQ(host.read(standing.size()), standing);
}

TEST_F(CableOrdersTest, PullItAndPlugItInAtAnotherTerminal) {
  CableProcess cable(device_, "adapter");
  const TrackMasterHost host(cable.path());
  cable.order("disconnect");
  EXPECT_THAT(host.read(), IsEmpty());
  cable.order("connect");
  const std::string path = cable.program().readLine();
  EXPECT_THAT(path, StartsWith("/dev/pts/"));
  const TrackMasterHost next(path);
  next.ask(requestSpeed);
  EXPECT_EQ(next.read(standing.size()), standing);
}

TEST_F(CableOrdersTest, AreThoseOfACableOnly) {
  CableProcess cable(device_, "wire");
  cable.order("press stop");
  const auto ended = cable.program().wait();
  EXPECT_EQ(ended.code, 0);
  EXPECT_EQ(ended.errors, "not an order: press stop\n");
}

TEST_F(CableOrdersTest, AreNotNeededToEndIt) {
  Program cable({"cable", "TrackMaster@" + device_.path()});
  EXPECT_THAT(cable.readLine(), StartsWith("/dev/pts/"));
  cable.signal(SIGTERM);
  const auto ended = cable.wait();
  EXPECT_EQ(ended.code, 0);
  EXPECT_THAT(ended.errors, IsEmpty());
}

TEST_F(CableOrdersTest, TheHostSeesADeviceVanish) {
  CableProcess cable(device_, "wire");
  const TrackMasterHost host(cable.path());
  device_.order("disconnect");
  EXPECT_THAT(host.read(), IsEmpty());
  const auto ended = cable.program().wait();
  EXPECT_EQ(ended.code, 4);
  EXPECT_THAT(ended.errors, HasSubstr("tarsil: the device's port has vanished\n"));
}

TEST(CableCommandTextTest, RefusesWhatItCannotDo) {
  const auto refuses = [](const std::vector<std::string>& arguments, int code, const std::string& text) {
    const auto ended = run(arguments);
    EXPECT_EQ(ended.code, code);
    EXPECT_THAT(ended.output, IsEmpty());
    EXPECT_EQ(ended.errors, "tarsil: " + text + "\n");
  };
  refuses({"cable", "TrackMaster"}, 2, "name the device and its port: MODEL@PORT");
  refuses({"cable", "Bike@ttyUSB0"}, 2, "no model with a line is called \"Bike\"; see `tarsil devices`");
  refuses({"cable", "TrackMaster@no-port"}, 3, "there is no port \"no-port\"");
  refuses({"cable", "TrackMaster@/nowhere/tty"}, 3, "cannot open /nowhere/tty: No such file or directory");
  refuses({"cable", "TrackMaster@no-port", "--cable", "lose=2"}, 2,
          "cable: \"lose=2\" has no chance from 0 to 1, such as 1/200");
}

}  // namespace
}  // namespace tarsil::cli
