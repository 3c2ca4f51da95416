#include "tarsil/platform/linux/LinuxTerminal.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>

#include "tarsil/platform/SystemPlatform.hpp"
#include "tests/helpers/HastyDriver.hpp"

namespace tarsil {
namespace {

using Apply = Terminal::Apply;

constexpr uid_t nobody = 65534;

/// A real pseudo-terminal. The test plays the device on its `master`, and keeps a second opening of the line,
/// `witness`, to see what the kernel was told.
class LinuxTerminalTest : public testing::Test {
 protected:
  LinuxTerminalTest() {
    std::array<char, PATH_MAX> name{};
    if (openpty(&master, &witness, name.data(), nullptr, nullptr) != 0) abort();
    path = name.data();
    fcntl(master, F_SETFD, FD_CLOEXEC);
    fcntl(witness, F_SETFD, FD_CLOEXEC);
  }
  ~LinuxTerminalTest() override { hangUp(); }

  void hangUp() {
    if (master < 0) return;
    close(witness);
    close(master);
    witness = master = -1;
  }

  int opened() { return valueOf(terminal.open(path)); }

  template <class Value>
  static Value valueOf(const Result<Value>& result) {
    EXPECT_TRUE(result) << strerror(result.error());
    return *result;
  }

  /// Raw, 8N1, at the speed.
  static TerminalAttributes raw(std::uint64_t speed) {
    TerminalAttributes attributes;
    attributes.modes.c_cflag = CS8 | CREAD | CLOCAL;
    attributes.modes.c_cc[VMIN] = 1;
    attributes.speed = speed;
    return attributes;
  }

  termios seenByTheKernel() const {
    termios modes{};
    EXPECT_EQ(tcgetattr(witness, &modes), 0);
    return modes;
  }

  /// 0, or the errno of an open by somebody who is not root.
  int openAsNobody() const {
    chmod(path.c_str(), 0666);
    const pid_t child = fork();
    if (child == 0) {
      if (setgid(nobody) != 0 || setuid(nobody) != 0) _exit(255);
      LinuxTerminal other;
      _exit(other.open(path).error());
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    return WEXITSTATUS(status);
  }

  LinuxTerminal terminal;
  int master = -1;
  int witness = -1;
  std::string path;
};

std::ptrdiff_t openDescriptors() {
  const auto all = std::filesystem::directory_iterator("/proc/self/fd");
  return std::distance(begin(all), end(all));
}

#define EXPECT_FAILS(call, reason) EXPECT_STREQ(strerror((call).error()), strerror(reason))

TEST_F(LinuxTerminalTest, OpensForBothWaysWithoutBlockingAndForThisProgramOnly) {
  const int descriptor = opened();
  const int flags = fcntl(descriptor, F_GETFL);
  EXPECT_EQ(flags & O_ACCMODE, O_RDWR);
  EXPECT_TRUE(flags & O_NONBLOCK);
  EXPECT_TRUE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC);

  EXPECT_TRUE(terminal.clearStatusFlags(descriptor));
  EXPECT_FALSE(fcntl(descriptor, F_GETFL) & (O_NONBLOCK | O_APPEND | O_ASYNC));
  EXPECT_TRUE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC);
  EXPECT_TRUE(terminal.close(descriptor));
}

TEST_F(LinuxTerminalTest, DoesNotBecomeTheControllingTerminal) {
  EXPECT_EXIT(
      {
        setsid();
        const bool isOpen = static_cast<bool>(terminal.open(path));
        _exit(isOpen && open("/dev/tty", O_RDWR) < 0 ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(LinuxTerminalTest, NeverTakesTheNumberOfAStandardStream) {
  EXPECT_EXIT(
      {
        for (const int standard : {0, 1, 2}) close(standard);
        const int descriptor = *terminal.open(path);
        const bool isPrivate = (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0;
        const bool streamsAreClosed = fcntl(0, F_GETFD) < 0 && fcntl(1, F_GETFD) < 0 && fcntl(2, F_GETFD) < 0;
        _exit(descriptor > 2 && isPrivate && streamsAreClosed ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(LinuxTerminalTest, RefusesASecondOpener) {
  const int descriptor = opened();
  const auto before = openDescriptors();
  // Root gets past TIOCEXCL and meets the advisory lock.
  EXPECT_FAILS(LinuxTerminal().open(path), getuid() == 0 ? EAGAIN : EBUSY);
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(flock(witness, LOCK_EX | LOCK_NB), -1);
  EXPECT_STREQ(strerror(errno), strerror(EAGAIN));
  EXPECT_TRUE(terminal.close(descriptor));
}

TEST_F(LinuxTerminalTest, RefusesAnOpenerWhoIsNotRoot) {
  if (getuid() != 0) GTEST_SKIP() << "needs root, to become somebody else";
  const int descriptor = opened();
  EXPECT_STREQ(strerror(openAsNobody()), strerror(EBUSY));
  EXPECT_TRUE(terminal.close(descriptor));
  EXPECT_EQ(openAsNobody(), 0);
}

TEST_F(LinuxTerminalTest, StaysLockedAfterASecondOpenerWasRefused) {
  if (getuid() != 0) GTEST_SKIP() << "needs root, to get past the one lock and become somebody else";
  const int descriptor = opened();
  EXPECT_FAILS(LinuxTerminal().open(path), EAGAIN);
  EXPECT_STREQ(strerror(openAsNobody()), strerror(EBUSY));
  EXPECT_TRUE(terminal.close(descriptor));
}

TEST_F(LinuxTerminalTest, CanBeOpenedAgainAfterClosing) {
  EXPECT_TRUE(terminal.close(opened()));
  EXPECT_EQ(flock(witness, LOCK_EX | LOCK_NB), 0);
  EXPECT_EQ(flock(witness, LOCK_UN), 0);
  EXPECT_TRUE(terminal.close(opened()));
}

TEST_F(LinuxTerminalTest, ADuplicateIsTheSameOpeningAndPrivateToThisProgram) {
  const int descriptor = opened();
  const int copy = valueOf(terminal.duplicate(descriptor));
  ASSERT_GT(copy, STDERR_FILENO);
  EXPECT_NE(copy, descriptor);
  EXPECT_TRUE(fcntl(copy, F_GETFD) & FD_CLOEXEC);
  EXPECT_TRUE(terminal.clearStatusFlags(descriptor));
  EXPECT_FALSE(fcntl(copy, F_GETFL) & O_NONBLOCK);
  EXPECT_EQ(write(copy, "x", 1), 1);
  char seen = 0;
  EXPECT_EQ(read(master, &seen, 1), 1);
  EXPECT_EQ(seen, 'x');
  EXPECT_FAILS(LinuxTerminal().open(path), getuid() == 0 ? EAGAIN : EBUSY);
  close(copy);
  EXPECT_TRUE(terminal.close(descriptor));
  EXPECT_FAILS(terminal.duplicate(descriptor), EBADF);
}

TEST_F(LinuxTerminalTest, ADuplicateKeepsNobodyOutOnceItsOpeningIsClosed) {
  const int descriptor = opened();
  const int copy = valueOf(terminal.duplicate(descriptor));
  EXPECT_TRUE(terminal.close(descriptor));
  EXPECT_TRUE(terminal.close(opened()));
  EXPECT_EQ(openAsNobody(), getuid() == 0 ? 0 : 255);
  close(copy);
}

TEST_F(LinuxTerminalTest, AForkedChildThatRunsNothingElseKeepsNobodyOut) {
  const int descriptor = opened();
  std::array<int, 2> hold{};
  ASSERT_EQ(pipe(hold.data()), 0);
  const pid_t child = fork();
  if (child == 0) {
    close(hold[1]);
    char end = 0;
    _exit(read(hold[0], &end, 1) == 0 ? 0 : 1);
  }
  close(hold[0]);
  EXPECT_TRUE(terminal.close(descriptor));
  EXPECT_TRUE(terminal.close(opened()));
  close(hold[1]);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST_F(LinuxTerminalTest, LeavesAnotherProgramsExclusiveMarkWhereItIs) {
  if (getuid() != 0) GTEST_SKIP() << "needs root, to get past the mark";
  ASSERT_EQ(ioctl(witness, TIOCEXCL), 0);
  EXPECT_TRUE(terminal.close(opened()));
  EXPECT_STREQ(strerror(openAsNobody()), strerror(EBUSY));
  ASSERT_EQ(ioctl(witness, TIOCNXCL), 0);
  EXPECT_TRUE(terminal.close(opened()));
  EXPECT_EQ(openAsNobody(), 0);
}

TEST_F(LinuxTerminalTest, OpensNothingButTerminals) {
  const auto before = openDescriptors();
  EXPECT_FAILS(terminal.open("/dev/null"), ENOTTY);
  EXPECT_FAILS(terminal.open("/"), EISDIR);
  EXPECT_FAILS(terminal.open("/dev/no-such-terminal"), ENOENT);
  EXPECT_FAILS(terminal.open(""), ENOENT);
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(LinuxTerminalTest, AppliesModesControlCharactersAndSpeed) {
  const int descriptor = opened();
  TerminalAttributes attributes = raw(115200);
  attributes.modes.c_cc[VMIN] = 1;
  attributes.modes.c_cc[VTIME] = 2;
  attributes.modes.c_lflag |= ECHO;
  attributes.modes.c_cflag |= HUPCL | CSTOPB;
  attributes.rtsCtsFlowControl = true;
  EXPECT_TRUE(terminal.setAttributes(descriptor, Apply::now, attributes));

  const termios kernel = seenByTheKernel();
  EXPECT_EQ(cfgetospeed(&kernel), B115200);
  EXPECT_EQ(cfgetispeed(&kernel), B115200);
  EXPECT_EQ(kernel.c_iflag, attributes.modes.c_iflag);
  EXPECT_EQ(kernel.c_oflag, attributes.modes.c_oflag);
  EXPECT_EQ(kernel.c_lflag, static_cast<tcflag_t>(ECHO));
  EXPECT_EQ(kernel.c_cflag & ~static_cast<tcflag_t>(CBAUD),
            static_cast<tcflag_t>(CREAD | CLOCAL | HUPCL | CSTOPB | CS8 | CRTSCTS));
  EXPECT_EQ(kernel.c_cc[VMIN], 1);
  EXPECT_EQ(kernel.c_cc[VTIME], 2);

  TerminalAttributes present = valueOf(terminal.getAttributes(descriptor));
  EXPECT_EQ(present.speed, 115200u);
  EXPECT_TRUE(present.rtsCtsFlowControl);
  EXPECT_FALSE(present.dtrDsrFlowControl);
  EXPECT_FALSE(present.dcdOutputFlowControl);
  EXPECT_EQ(present.modes.c_cflag, attributes.modes.c_cflag);
  EXPECT_EQ(present.modes.c_lflag, attributes.modes.c_lflag);
  EXPECT_EQ(present.modes.c_cc[VTIME], 2);

  present.rtsCtsFlowControl = false;
  EXPECT_TRUE(terminal.setAttributes(descriptor, Apply::now, present));
  EXPECT_FALSE(seenByTheKernel().c_cflag & CRTSCTS);
  EXPECT_TRUE(terminal.close(descriptor));
}

TEST_F(LinuxTerminalTest, RestoresWhatItFound) {
  const termios before = seenByTheKernel();
  const int descriptor = opened();
  TerminalAttributes saved = valueOf(terminal.getAttributes(descriptor));
  EXPECT_TRUE(terminal.setAttributes(descriptor, Apply::now, raw(4800)));
  EXPECT_TRUE(terminal.setAttributes(descriptor, Apply::afterOutputDrains, saved));
  const termios after = seenByTheKernel();
  EXPECT_EQ(after.c_iflag, before.c_iflag);
  EXPECT_EQ(after.c_oflag, before.c_oflag);
  EXPECT_EQ(after.c_cflag, before.c_cflag);
  EXPECT_EQ(after.c_lflag, before.c_lflag);
  EXPECT_THAT(after.c_cc, testing::ElementsAreArray(before.c_cc));
  EXPECT_EQ(cfgetospeed(&after), cfgetospeed(&before));
  EXPECT_TRUE(terminal.close(descriptor));
}

TEST_F(LinuxTerminalTest, RestoresASpeedThatTheTerminalLayerDoesNotHave) {
  const int descriptor = opened();
  EXPECT_TRUE(terminal.setSpecialSpeed(descriptor, raw(250000)));
  TerminalAttributes foreign = valueOf(terminal.getAttributes(descriptor));
  EXPECT_TRUE(terminal.setAttributes(descriptor, Apply::now, raw(4800)));
  EXPECT_FAILS(terminal.setAttributes(descriptor, Apply::now, foreign), EINVAL);
  EXPECT_TRUE(terminal.setAttributes(descriptor, Apply::afterOutputDrains, foreign));
  TerminalAttributes present = valueOf(terminal.getAttributes(descriptor));
  EXPECT_EQ(present.speed, 250000u);
  EXPECT_FAILS(terminal.setAttributes(descriptor, Apply::afterOutputDrains, raw(std::uint64_t{1} << 32)),
               EINVAL);
  EXPECT_TRUE(terminal.close(descriptor));
}

TEST_F(LinuxTerminalTest, RestoresAnInputSpeedOfItsOwn) {
  const int descriptor = opened();
  for (const std::uint64_t input : {7777U, 9600U}) {
    TerminalAttributes foreign = raw(31250);
    foreign.inputSpeed = input;
    EXPECT_TRUE(terminal.setSpecialSpeed(descriptor, foreign));
    TerminalAttributes found = valueOf(terminal.getAttributes(descriptor));
    EXPECT_EQ(found.speed, 31250U);
    EXPECT_EQ(found.inputSpeed, input);
    EXPECT_TRUE(terminal.setAttributes(descriptor, Apply::now, raw(4800)));
    EXPECT_TRUE(terminal.setAttributes(descriptor, Apply::afterOutputDrains, found));
    TerminalAttributes after = valueOf(terminal.getAttributes(descriptor));
    EXPECT_EQ(after.speed, 31250U);
    EXPECT_EQ(after.inputSpeed, input);
  }
  EXPECT_TRUE(terminal.close(descriptor));
}

TEST_F(LinuxTerminalTest, TellsStickParityApartFromTheModes) {
  termios before = seenByTheKernel();
  before.c_cflag |= CMSPAR | PARODD;
  EXPECT_EQ(tcsetattr(witness, TCSANOW, &before), 0);
  const int descriptor = opened();
  TerminalAttributes attributes = valueOf(terminal.getAttributes(descriptor));
  EXPECT_TRUE(attributes.stickParity);
  EXPECT_EQ(attributes.modes.c_cflag & (CMSPAR | PARODD), static_cast<tcflag_t>(PARODD));

  attributes.stickParity = false;
  EXPECT_TRUE(terminal.setAttributes(descriptor, Apply::now, attributes));
  EXPECT_EQ(seenByTheKernel().c_cflag & CMSPAR, 0u);
  attributes.stickParity = true;
  EXPECT_TRUE(terminal.setAttributes(descriptor, Apply::now, attributes));
  EXPECT_NE(seenByTheKernel().c_cflag & CMSPAR, 0u);
  EXPECT_TRUE(terminal.close(descriptor));
}

TEST_F(LinuxTerminalTest, IgnoresSpeedBitsAmongTheModes) {
  const int descriptor = opened();
  TerminalAttributes attributes = raw(9600);
  attributes.modes.c_cflag |= B115200;
  EXPECT_TRUE(terminal.setAttributes(descriptor, Apply::now, attributes));
  const termios kernel = seenByTheKernel();
  EXPECT_EQ(cfgetospeed(&kernel), B9600);
  EXPECT_TRUE(terminal.close(descriptor));
}

TEST_F(LinuxTerminalTest, TakesEverySpeedOfTheTerminalLayer) {
  const int descriptor = opened();
  for (const std::uint64_t speed :
       {0u,       50u,      75u,      110u,     134u,     150u,     200u,    300u,
        600u,     1200u,    1800u,    2400u,    4800u,    9600u,    19200u,  38400u,
        57600u,   115200u,  230400u,  460800u,  500000u,  576000u,  921600u, 1000000u,
        1152000u, 1500000u, 2000000u, 2500000u, 3000000u, 3500000u, 4000000u}) {
    EXPECT_TRUE(terminal.setAttributes(descriptor, Apply::now, raw(speed))) << speed;
    TerminalAttributes present = valueOf(terminal.getAttributes(descriptor));
    EXPECT_EQ(present.speed, speed);
  }
  EXPECT_TRUE(terminal.close(descriptor));
}

TEST_F(LinuxTerminalTest, AppliesNothingOfAnotherSpeed) {
  const int descriptor = opened();
  EXPECT_TRUE(terminal.setAttributes(descriptor, Apply::now, raw(9600)));
  for (const std::uint64_t speed : {std::uint64_t{12345}, std::uint64_t{1}, std::uint64_t{9601},
                                    (std::uint64_t{1} << 32) + 9600, ~std::uint64_t{0}}) {
    TerminalAttributes attributes = raw(speed);
    attributes.modes.c_lflag |= ECHO;
    EXPECT_FAILS(terminal.setAttributes(descriptor, Apply::now, attributes), EINVAL);
    EXPECT_FALSE(seenByTheKernel().c_lflag & ECHO);
    const termios kernel = seenByTheKernel();
    EXPECT_EQ(cfgetospeed(&kernel), B9600);
  }
  EXPECT_TRUE(terminal.close(descriptor));
}

TEST_F(LinuxTerminalTest, AsksTheDriverForASpecialSpeedTogetherWithTheModes) {
  const int descriptor = opened();
  TerminalAttributes attributes = raw(12345);
  attributes.modes.c_cc[VTIME] = 7;
  EXPECT_TRUE(terminal.setSpecialSpeed(descriptor, attributes));
  TerminalAttributes present = valueOf(terminal.getAttributes(descriptor));
  EXPECT_EQ(present.speed, 12345u);
  EXPECT_EQ(present.modes.c_cc[VTIME], 7);
  EXPECT_FAILS(terminal.setSpecialSpeed(descriptor, raw(std::uint64_t{1} << 32)), EINVAL);
  EXPECT_TRUE(terminal.close(descriptor));
}

TEST_F(LinuxTerminalTest, ChangesOtherSettingsAtASpecialSpeedInForce) {
  const int descriptor = opened();
  EXPECT_TRUE(terminal.setSpecialSpeed(descriptor, raw(250000)));
  TerminalAttributes present = valueOf(terminal.getAttributes(descriptor));
  present.rtsCtsFlowControl = true;
  EXPECT_TRUE(terminal.setAttributes(descriptor, Apply::now, present));
  EXPECT_TRUE(seenByTheKernel().c_cflag & CRTSCTS);
  present = valueOf(terminal.getAttributes(descriptor));
  EXPECT_EQ(present.speed, 250000u);
  EXPECT_TRUE(terminal.close(descriptor));
}

TEST_F(LinuxTerminalTest, SaysThatTheSystemHasNoOtherHardwareFlowControl) {
  const int descriptor = opened();
  TerminalAttributes attributes = raw(2400);
  attributes.dtrDsrFlowControl = true;
  EXPECT_FAILS(terminal.setAttributes(descriptor, Apply::now, attributes), ENOTSUP);
  const termios kernel = seenByTheKernel();
  EXPECT_EQ(cfgetospeed(&kernel), B2400);

  attributes = raw(1234);
  attributes.dcdOutputFlowControl = true;
  EXPECT_FAILS(terminal.setSpecialSpeed(descriptor, attributes), ENOTSUP);
  TerminalAttributes present = valueOf(terminal.getAttributes(descriptor));
  EXPECT_EQ(present.speed, 1234u);
  EXPECT_TRUE(terminal.close(descriptor));
}

TEST_F(LinuxTerminalTest, APseudoTerminalTakesEveryLineSetting) {
  const int descriptor = opened();
  TerminalAttributes attributes = raw(4800);
  attributes.modes.c_cflag =
      (attributes.modes.c_cflag & ~static_cast<tcflag_t>(CSIZE)) | CS7 | PARENB | PARODD;
  EXPECT_TRUE(terminal.setAttributes(descriptor, Apply::now, attributes));
  // The kernel kept eight bits and no parity.
  EXPECT_EQ(seenByTheKernel().c_cflag & (CSIZE | PARENB), static_cast<tcflag_t>(CS8));
  EXPECT_TRUE(terminal.close(descriptor));
}

TEST_F(LinuxTerminalTest, APseudoTerminalHasNoModemLineSet) {
  const int descriptor = opened();
  EXPECT_TRUE(terminal.setModemLines(descriptor, TIOCM_DTR | TIOCM_RTS));
  EXPECT_EQ(terminal.getModemLines(descriptor), 0);
  EXPECT_TRUE(terminal.close(descriptor));
}

TEST_F(LinuxTerminalTest, CarriesBytesBothWays) {
  const int descriptor = opened();
  EXPECT_TRUE(terminal.setAttributes(descriptor, Apply::now, raw(9600)));
  std::array<char, 8> bytes{};
  EXPECT_FAILS(terminal.read(descriptor, bytes.data(), bytes.size()), EAGAIN);
  EXPECT_EQ(terminal.write(descriptor, "\x00\xff\r\n", 4), 4U);
  EXPECT_EQ(read(master, bytes.data(), bytes.size()), 4);
  EXPECT_EQ(std::string_view(bytes.data(), 4), std::string_view("\x00\xff\r\n", 4));

  EXPECT_TRUE(terminal.clearStatusFlags(descriptor));
  EXPECT_EQ(write(master, "\x03\x04", 2), 2);
  EXPECT_EQ(terminal.read(descriptor, bytes.data(), bytes.size()), 2U);
  EXPECT_EQ(std::string_view(bytes.data(), 2), "\x03\x04");
  EXPECT_TRUE(terminal.close(descriptor));
}

// A writer that was about to begin when the port closed would wait for a stalled device for ever.
TEST_F(LinuxTerminalTest, BeginsNoWriteOnceTheAttributesOfOldAreBack) {
  const int descriptor = opened();
  const TerminalAttributes saved = valueOf(terminal.getAttributes(descriptor));
  EXPECT_EQ(valueOf(terminal.write(descriptor, "a", 1)), 1u);
  EXPECT_TRUE(terminal.setAttributes(descriptor, Apply::afterOutputDrains, saved));
  EXPECT_FAILS(terminal.write(descriptor, "b", 1), ESHUTDOWN);
  EXPECT_TRUE(terminal.close(descriptor));
}

TEST_F(LinuxTerminalTest, GivesUpAWriteThatNobodyReadsRatherThanWaitForIt) {
  LinuxTerminal hasty(std::make_shared<HastyDriver>());
  const int descriptor = valueOf(hasty.open(path));
  ASSERT_TRUE(hasty.clearStatusFlags(descriptor));
  ASSERT_TRUE(hasty.setAttributes(descriptor, Apply::now, raw(9600)));
  const std::string much(300'000, 'x');
  std::size_t written = 0;
  std::thread writer([&] { written = *hasty.write(descriptor, much.data(), much.size()); });
  pollfd output{master, POLLIN, 0};
  ASSERT_EQ(poll(&output, 1, 60'000), 1);
  EXPECT_TRUE(hasty.setAttributes(descriptor, Apply::afterOutputDrains, raw(4800)));
  writer.join();
  EXPECT_GT(written, 0U);
  EXPECT_LT(written, much.size());
  EXPECT_FAILS(hasty.write(descriptor, much.data(), much.size()), ESHUTDOWN);
  EXPECT_TRUE(hasty.close(descriptor));
}

TEST_F(LinuxTerminalTest, AVanishedDeviceIsNotConfigured) {
  const int descriptor = opened();
  EXPECT_TRUE(terminal.clearStatusFlags(descriptor));
  TerminalAttributes attributes = raw(9600);
  hangUp();

  std::array<char, 8> bytes{};
  EXPECT_FAILS(terminal.getModemLines(descriptor), ENXIO);
  EXPECT_FAILS(terminal.setModemLines(descriptor, 0), ENXIO);
  EXPECT_FAILS(terminal.getAttributes(descriptor), ENXIO);
  EXPECT_FAILS(terminal.setAttributes(descriptor, Apply::now, attributes), ENXIO);
  EXPECT_FAILS(terminal.setSpecialSpeed(descriptor, attributes), ENXIO);
  EXPECT_FAILS(terminal.write(descriptor, bytes.data(), bytes.size()), ENXIO);
  EXPECT_FAILS(terminal.setAttributes(descriptor, Apply::afterOutputDrains, attributes), ENXIO);
  EXPECT_EQ(terminal.read(descriptor, bytes.data(), bytes.size()), 0U);
  EXPECT_TRUE(terminal.close(descriptor));
}

TEST_F(LinuxTerminalTest, SaysWhenADescriptorIsNotOpen) {
  const int descriptor = opened();
  EXPECT_TRUE(terminal.close(descriptor));
  EXPECT_FAILS(terminal.close(descriptor), EBADF);
  EXPECT_FAILS(terminal.getModemLines(descriptor), EBADF);
  EXPECT_FAILS(terminal.clearStatusFlags(descriptor), EBADF);
}

std::atomic<int> alarms = 0;

TEST_F(LinuxTerminalTest, GoesOnAfterASignal) {
  const int descriptor = opened();
  EXPECT_TRUE(terminal.setAttributes(descriptor, Apply::now, raw(9600)));
  EXPECT_TRUE(terminal.clearStatusFlags(descriptor));

  // Made before the alarm is set, and deaf to it: every alarm interrupts the reading thread.
  sigset_t alarm;
  sigemptyset(&alarm);
  sigaddset(&alarm, SIGALRM);
  pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
  std::thread device([this] {
    while (alarms < 20) std::this_thread::yield();
    EXPECT_EQ(::write(master, "A", 1), 1);
  });
  pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
  struct sigaction action {};
  action.sa_handler = [](int) { ++alarms; };
  sigaction(SIGALRM, &action, nullptr);
  itimerval everyMillisecond{{0, 1000}, {0, 1000}};
  setitimer(ITIMER_REAL, &everyMillisecond, nullptr);

  char byte = 0;
  EXPECT_EQ(terminal.read(descriptor, &byte, 1), 1U);
  EXPECT_EQ(byte, 'A');

  everyMillisecond = {};
  setitimer(ITIMER_REAL, &everyMillisecond, nullptr);
  device.join();
  EXPECT_TRUE(terminal.close(descriptor));
}

TEST_F(LinuxTerminalTest, IsTheSystemsTerminal) {
  EXPECT_NE(std::dynamic_pointer_cast<LinuxTerminal>(systemTerminal()), nullptr);
  EXPECT_EQ(systemTerminal(), systemTerminal());
}

}  // namespace
}  // namespace tarsil
