// What a host that waits for a device to come back finds at the path where it was.

#include "simulators/lines/PseudoTerminal.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>
#include <utility>

#include "simulators/devices/simulatedDevices.hpp"
#include "simulators/lines/PseudoTerminalLine.hpp"
#include "simulators/physics/Patient.hpp"
#include "tests/simulators/simulatedTime.hpp"

namespace tarsil::simulators {
namespace {

TEST(PseudoTerminalTest, ThePathOfOneThatHungUpIsNobodys) {
  PseudoTerminal gone;
  gone.hangUp();
  const PseudoTerminal another;
  EXPECT_NE(another.path(), gone.path());
  EXPECT_EQ(open(gone.path().c_str(), O_RDWR | O_NOCTTY), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST(PseudoTerminalTest, ThePathOfOneThatHungUpIsNobodysForAsLongAsItIsTaken) {
  std::optional<PseudoTerminal> gone(std::in_place);
  const std::string path = gone->path();
  const auto taken = gone->takenPath();
  gone.reset();
  const PseudoTerminal another;
  EXPECT_NE(another.path(), path);
}

TEST(PseudoTerminalTest, ThePathOfAPulledPlugIsNobodys) {
  VirtualTime& time = simulatedTime();
  Patient patient;
  const auto device = makeSimulatedDevice("LodeTreadmill", patient);
  PseudoTerminalLine line(*device);
  const std::string path = line.hostEnd().path();
  line.hostEnd().unplug();
  time.settle();
  EXPECT_NE(access(path.c_str(), F_OK), 0);
  const PseudoTerminal another;
  EXPECT_NE(another.path(), path);
}

}  // namespace
}  // namespace tarsil::simulators
