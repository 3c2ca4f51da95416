// What LinuxTerminal does with drivers that no machine without the adapter has.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tarsil/platform/linux/LinuxTerminal.hpp"
#include "tarsil/support/FileDescriptor.hpp"

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Apply = Terminal::Apply;

/// A driver with a line behind it, which takes settings in its own way. The descriptor means nothing to it.
class ScriptedDriver final : public TerminalDriver {
 public:
  /// What the driver makes of the settings that it is told.
  std::function<void(TerminalAttributes&)> change = [](TerminalAttributes&) {};
  bool hasLine = true;
  /// When not 0, every request fails with it; `failures` of them when that is not negative.
  int failure = 0;
  int failures = -1;
  /// How many bytes are unsent at each look; the last count stays.
  std::vector<int> unsent{0};
  /// What discarding fails with, last to first.
  std::vector<int> discardFailures;
  /// The write that is under way ends when the driver has been asked this often.
  int obstinacy = 1;
  std::function<void()> lastWriteEnds = [] {};

  TerminalAttributes settings;
  int lines = TIOCM_CTS;
  std::vector<std::string> calls;

  int getSettings(int, TerminalAttributes& out) override {
    if (fails()) return -1;
    out = settings;
    return 0;
  }
  int setSettings(int, const TerminalAttributes& in) override {
    if (fails()) return -1;
    calls.emplace_back("set");
    take(in);
    return 0;
  }
  int setSettingsAfterOutput(int, const TerminalAttributes& in) override {
    if (fails()) return -1;
    calls.emplace_back("set after output");
    take(in);
    return 0;
  }
  int getModemLines(int, int& out) override {
    if (fails() || isWithoutLine()) return -1;
    out = lines;
    return 0;
  }
  int setModemLines(int, int in) override {
    if (fails() || isWithoutLine()) return -1;
    lines = in;
    return 0;
  }
  int getUnsentCount(int, int& count) override {
    if (fails()) return -1;
    count = unsent.front();
    if (unsent.size() > 1) unsent.erase(unsent.begin());
    return 0;
  }
  int discardUnsent(int) override {
    calls.emplace_back("discard");
    if (discardFailures.empty()) return 0;
    errno = discardFailures.back();
    discardFailures.pop_back();
    return -1;
  }
  void endWrites(int) override {
    calls.emplace_back("end writes");
    if (--obstinacy == 0) lastWriteEnds();
  }
  void pause() override { ++pauses; }

  int pauses = 0;

 private:
  bool fails() {
    if (failure == 0 || failures == 0) return false;
    if (failures > 0) --failures;
    errno = failure;
    return true;
  }
  bool isWithoutLine() const {
    if (hasLine) return false;
    errno = ENOTTY;
    return true;
  }
  void take(const TerminalAttributes& in) {
    settings = in;
    change(settings);
  }
};

class ObstinateDriversTest : public testing::Test {
 protected:
  static TerminalAttributes line(std::uint64_t speed, tcflag_t modes = CS8) {
    TerminalAttributes attributes;
    attributes.modes.c_cflag = modes | CREAD | CLOCAL;
    attributes.speed = speed;
    return attributes;
  }
  /// 0, or the errno.
  int apply(const TerminalAttributes& attributes, Apply when = Apply::now) {
    return terminal.setAttributes(3, when, attributes).error();
  }
  void drop(tcflag_t modes) {
    driver->change = [modes](TerminalAttributes& settings) { settings.modes.c_cflag &= ~modes; };
  }

  std::shared_ptr<ScriptedDriver> driver = std::make_shared<ScriptedDriver>();
  LinuxTerminal terminal{driver};
};

TEST_F(ObstinateDriversTest, TakesWhatTheDriverTook) {
  EXPECT_EQ(apply(line(4800, CS7 | PARENB | PARODD | CSTOPB)), 0);
  EXPECT_EQ(driver->settings.speed, 4800u);
  EXPECT_EQ(driver->settings.modes.c_cflag,
            static_cast<tcflag_t>(CS7 | PARENB | PARODD | CSTOPB | CREAD | CLOCAL));
}

TEST_F(ObstinateDriversTest, FindsOutThatTheDriverKeptAnotherSpeed) {
  driver->change = [](TerminalAttributes& settings) { settings.speed = 9600; };
  EXPECT_EQ(apply(line(9600)), 0);
  EXPECT_EQ(apply(line(4000000)), EINVAL);
  EXPECT_EQ(apply(line(4800)), EINVAL);
  EXPECT_EQ(terminal.setSpecialSpeed(3, line(250000)).error(), EINVAL);
}

TEST_F(ObstinateDriversTest, TakesAnAdaptersQuotientForTheSpeed) {
  const auto keeps = [this](std::uint32_t speed) {
    driver->change = [speed](TerminalAttributes& settings) { settings.speed = speed; };
  };
  keeps(115385);
  EXPECT_EQ(apply(line(115200)), 0);
  keeps(9792);
  EXPECT_EQ(apply(line(9600)), 0);
  keeps(9793);
  EXPECT_EQ(apply(line(9600)), EINVAL);
  keeps(9408);
  EXPECT_EQ(apply(line(9600)), 0);
  keeps(9407);
  EXPECT_EQ(apply(line(9600)), EINVAL);
}

TEST_F(ObstinateDriversTest, FindsOutThatTheDriverKeptAnotherInputSpeed) {
  TerminalAttributes attributes = line(9600);
  attributes.inputSpeed = 4800;
  EXPECT_EQ(apply(attributes), 0);
  driver->change = [](TerminalAttributes& settings) { settings.inputSpeed = 0; };
  EXPECT_EQ(apply(attributes), EINVAL);
  EXPECT_EQ(apply(line(9600)), 0);
  attributes.inputSpeed = 9600;  // which is the output's, told as none of its own
  EXPECT_EQ(apply(attributes), 0);
  attributes.inputSpeed = 1ULL << 32U;
  EXPECT_EQ(apply(attributes), EINVAL);
}

TEST_F(ObstinateDriversTest, FindsOutThatTheDriverKeptOtherDataBits) {
  driver->change = [](TerminalAttributes& settings) { settings.modes.c_cflag |= CS8; };
  EXPECT_EQ(apply(line(9600, CS8)), 0);
  EXPECT_EQ(apply(line(9600, CS7)), EINVAL);
  EXPECT_EQ(apply(line(9600, CS5)), EINVAL);
}

TEST_F(ObstinateDriversTest, FindsOutThatTheDriverKeptAnotherParityOrStopBit) {
  drop(PARENB);
  EXPECT_EQ(apply(line(9600, CS8 | PARENB)), EINVAL);
  drop(PARODD);
  EXPECT_EQ(apply(line(9600, CS8 | PARENB | PARODD)), EINVAL);
  drop(CSTOPB);
  EXPECT_EQ(apply(line(9600, CS8 | CSTOPB)), EINVAL);
}

TEST_F(ObstinateDriversTest, FindsOutThatTheDriverKeptAStickParity) {
  driver->change = [](TerminalAttributes& settings) { settings.stickParity = true; };
  EXPECT_EQ(apply(line(9600, CS8)), 0) << "there is none";
  EXPECT_EQ(apply(line(9600, CS8 | PARENB)), EINVAL);
}

TEST_F(ObstinateDriversTest, AsksNotWhichParityThereIsNot) {
  drop(PARODD);
  EXPECT_EQ(apply(line(9600, CS8 | PARODD)), 0);
}

TEST_F(ObstinateDriversTest, FindsOutThatTheDriverHasNoFlowControl) {
  driver->change = [](TerminalAttributes& settings) { settings.rtsCtsFlowControl = false; };
  TerminalAttributes attributes = line(9600);
  EXPECT_EQ(apply(attributes), 0);
  attributes.rtsCtsFlowControl = true;
  EXPECT_EQ(apply(attributes), EINVAL);
}

TEST_F(ObstinateDriversTest, ReportsASettingThatWasNotTakenBeforeAFlowControlThatIsNotThere) {
  drop(CSTOPB);
  TerminalAttributes attributes = line(9600, CS8 | CSTOPB);
  attributes.dtrDsrFlowControl = true;
  EXPECT_EQ(apply(attributes), EINVAL);
  attributes.modes.c_cflag &= ~static_cast<tcflag_t>(CSTOPB);
  EXPECT_EQ(apply(attributes), ENOTSUP);
}

TEST_F(ObstinateDriversTest, ComplainsOfNothingWithoutALine) {
  driver->hasLine = false;
  driver->change = [](TerminalAttributes& settings) { settings = {}; };
  EXPECT_EQ(apply(line(115200, CS7 | PARENB | CSTOPB)), 0);
}

TEST_F(ObstinateDriversTest, TellsTheModemLinesAsTheyAre) {
  EXPECT_EQ(terminal.getModemLines(3), TIOCM_CTS);
  EXPECT_TRUE(terminal.setModemLines(3, TIOCM_CTS | TIOCM_RTS));
  EXPECT_EQ(driver->lines, TIOCM_CTS | TIOCM_RTS);
}

TEST_F(ObstinateDriversTest, CallsEveryVanishedDeviceNotConfigured) {
  for (const int reason : {EIO, ENODEV, ENXIO}) {
    driver->failure = reason;
    EXPECT_EQ(terminal.getAttributes(3).error(), ENXIO);
    EXPECT_EQ(apply(line(9600)), ENXIO);
    EXPECT_EQ(apply(line(9600), Apply::afterOutputDrains), ENXIO);
    EXPECT_EQ(apply(line(12345)), ENXIO);
    EXPECT_EQ(terminal.setSpecialSpeed(3, line(12345)).error(), ENXIO);
    EXPECT_EQ(terminal.getModemLines(3).error(), ENXIO);
    EXPECT_EQ(terminal.setModemLines(3, 0).error(), ENXIO);
  }
}

TEST_F(ObstinateDriversTest, PassesOtherReasonsOn) {
  driver->failure = EPERM;
  EXPECT_EQ(apply(line(9600)), EPERM);
  EXPECT_EQ(terminal.getModemLines(3).error(), EPERM);
}

TEST_F(ObstinateDriversTest, AsksAgainAfterASignal) {
  driver->failure = EINTR;
  driver->failures = 3;
  EXPECT_EQ(apply(line(9600)), 0);
  driver->failures = 1;
  EXPECT_TRUE(terminal.getModemLines(3));
}

TEST_F(ObstinateDriversTest, AppliesAtOnceWithoutWaitingForOutput) {
  driver->unsent = {100};
  EXPECT_EQ(apply(line(9600)), 0);
  EXPECT_THAT(driver->calls, ElementsAre("set"));
  EXPECT_EQ(driver->pauses, 0);
}

TEST_F(ObstinateDriversTest, WaitsForOutputAsLongAsItFlows) {
  // A byte every 2.99 s: the slowest that counts as flowing.
  driver->unsent.clear();
  for (int left = 5; left > 0; --left) driver->unsent.insert(driver->unsent.end(), 299, left);
  driver->unsent.push_back(0);
  EXPECT_EQ(apply(line(9600), Apply::afterOutputDrains), 0);
  EXPECT_THAT(driver->calls, ElementsAre("set after output"));
  EXPECT_EQ(driver->pauses, 5 * 299);
}

TEST_F(ObstinateDriversTest, GivesUpOnOutputThatStandsStill) {
  driver->unsent = {9, 8, 7};
  EXPECT_EQ(apply(line(9600), Apply::afterOutputDrains), 0);
  EXPECT_THAT(driver->calls, ElementsAre("discard", "set"));
  EXPECT_EQ(driver->pauses, 2 + 300);
}

TEST_F(ObstinateDriversTest, LeavesOutputThatCannotBeGivenUpToTheClosing) {
  for (const int reason : {EIO, ENODEV, EPERM, ENOTTY}) {
    driver->calls.clear();
    driver->unsent = {9};
    driver->discardFailures = {reason, EINTR};
    EXPECT_EQ(apply(line(9600), Apply::afterOutputDrains), 0);
    EXPECT_THAT(driver->calls, ElementsAre("discard", "discard", "set")) << reason;
  }
}

TEST_F(ObstinateDriversTest, EndsTheWriteThatIsUnderWayBeforeItGivesItsOutputUp) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  const FileDescriptor device(ends[0]);
  const FileDescriptor port(ends[1]);
  const int capacity = fcntl(port.get(), F_GETPIPE_SZ);
  const std::vector<char> much(2 * static_cast<std::size_t>(capacity));
  std::size_t written = 0;
  std::thread writer([&] { written = *terminal.write(port.get(), much.data(), much.size()); });
  for (int held = 0; held < capacity; ioctl(device.get(), FIONREAD, &held)) std::this_thread::yield();
  driver->obstinacy = 3;
  driver->lastWriteEnds = [&] {
    std::vector<char> taken(much.size());
    EXPECT_EQ(read(device.get(), taken.data(), taken.size()), capacity);
    writer.join();
  };
  driver->unsent = {9};
  EXPECT_EQ(terminal.setAttributes(port.get(), Apply::afterOutputDrains, line(9600)).error(), 0);
  EXPECT_THAT(driver->calls, ElementsAre("end writes", "end writes", "end writes", "discard", "set"));
  EXPECT_LT(written, much.size());
}

TEST_F(ObstinateDriversTest, DoesNotWaitForOutputOfAVanishedDevice) {
  driver->unsent = {9};
  driver->failure = EIO;
  EXPECT_EQ(apply(line(9600), Apply::afterOutputDrains), ENXIO);
  EXPECT_EQ(driver->pauses, 0);
  EXPECT_THAT(driver->calls, IsEmpty());
}

}  // namespace
}  // namespace tarsil
