#include "tarsil/platform/linux/LinuxTerminal.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

#include "tarsil/platform/SystemPlatform.hpp"
#include "tarsil/platform/linux/KernelTerminalDriver.hpp"

namespace tarsil {
namespace {

// How often output may be found unmoved, 10 ms apart, before it counts as stuck.
constexpr int patience = 300;

int fail(int reason) {
  errno = reason;
  return -1;
}

// Makes the call again when a signal interrupted it. A vanished device says EIO, or ENODEV, where other
// systems say ENXIO.
template <class Call>
auto answer(const Call& call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  if (result < 0 && (errno == EIO || errno == ENODEV)) errno = ENXIO;
  return result;
}

void closeKeepingReason(int descriptor) {
  const int reason = errno;
  ::close(descriptor);
  errno = reason;
}

int aboveStandardStreams(int descriptor) {
  if (descriptor < 0 || descriptor > STDERR_FILENO) return descriptor;
  const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  closeKeepingReason(descriptor);
  return moved;
}

// Control modes that the attributes have members of their own for.
constexpr tcflag_t keptElsewhere = CBAUD | CIBAUD | CRTSCTS | CMSPAR;

TerminalAttributes attributesOf(const DriverSettings& settings) {
  TerminalAttributes attributes;
  attributes.modes.c_iflag = settings.inputModes;
  attributes.modes.c_oflag = settings.outputModes;
  attributes.modes.c_cflag = settings.controlModes & ~keptElsewhere;
  attributes.modes.c_lflag = settings.localModes;
  attributes.modes.c_line = settings.lineDiscipline;
  std::copy(settings.controlCharacters.begin(), settings.controlCharacters.end(), attributes.modes.c_cc);
  attributes.speed = settings.speed;
  attributes.rtsCtsFlowControl = (settings.controlModes & CRTSCTS) != 0;
  attributes.stickParity = (settings.controlModes & CMSPAR) != 0;
  return attributes;
}

// The speed must fit.
DriverSettings settingsOf(const TerminalAttributes& attributes) {
  DriverSettings settings;
  settings.inputModes = attributes.modes.c_iflag;
  settings.outputModes = attributes.modes.c_oflag;
  settings.controlModes = attributes.modes.c_cflag & ~keptElsewhere;
  if (attributes.rtsCtsFlowControl) settings.controlModes |= CRTSCTS;
  if (attributes.stickParity) settings.controlModes |= CMSPAR;
  settings.localModes = attributes.modes.c_lflag;
  settings.lineDiscipline = attributes.modes.c_line;
  std::copy_n(attributes.modes.c_cc, settings.controlCharacters.size(), settings.controlCharacters.begin());
  settings.speed = static_cast<std::uint32_t>(attributes.speed);
  return settings;
}

// What goes over the line, and how. Which parity counts only where there is one.
tcflag_t lineModes(const DriverSettings& settings) {
  const bool hasParity = (settings.controlModes & PARENB) != 0;
  const tcflag_t relevant = CSIZE | CSTOPB | PARENB | CRTSCTS | (hasParity ? PARODD | CMSPAR : 0);
  return settings.controlModes & relevant;
}

// An adapter divides its own clock and may tell the exact quotient: 115385 for 115200, say. Within 2 % it is
// the speed that was asked for; the kernel draws the same line.
bool isSpeed(std::uint32_t taken, std::uint32_t asked) {
  const std::uint32_t difference = taken > asked ? taken - asked : asked - taken;
  return difference <= asked / 50;
}

}  // namespace

LinuxTerminal::LinuxTerminal() : LinuxTerminal(std::make_shared<KernelTerminalDriver>()) {}

LinuxTerminal::LinuxTerminal(std::shared_ptr<TerminalDriver> driver) : driver_(std::move(driver)) {}

int LinuxTerminal::open(const std::string& path) {
  constexpr int flags = O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC;
  const int descriptor = aboveStandardStreams(answer([&] { return ::open(path.c_str(), flags); }));
  if (descriptor < 0 || lock(descriptor) == 0) return descriptor;
  closeKeepingReason(descriptor);
  return -1;
}

// Other programs heed one lock or the other; the advisory one also keeps root out.
int LinuxTerminal::lock(int descriptor) {
  if (answer([=] { return flock(descriptor, LOCK_EX | LOCK_NB); }) < 0) return -1;
  int isMarked = 0;
  if (ioctl(descriptor, TIOCGEXCL, &isMarked) == 0 && isMarked != 0) return 0;
  if (answer([=] { return ioctl(descriptor, TIOCEXCL); }) < 0) return -1;
  const std::lock_guard guard(mutex_);
  marked_.insert(descriptor);
  return 0;
}

// Both outlive this descriptor as long as anybody else holds a copy: a watcher process, or a child that was
// forked and runs no other program. The mark goes first: once the lock is gone, the next opener sets its own.
void LinuxTerminal::unlock(int descriptor) {
  {
    const std::lock_guard guard(mutex_);
    if (marked_.erase(descriptor) != 0) ioctl(descriptor, TIOCNXCL);
  }
  answer([=] { return flock(descriptor, LOCK_UN); });
}

int LinuxTerminal::clearStatusFlags(int descriptor) {
  return answer([=] { return fcntl(descriptor, F_SETFL, 0); });
}

int LinuxTerminal::getAttributes(int descriptor, TerminalAttributes& attributes) {
  DriverSettings settings;
  const int result = answer([&] { return driver_->getSettings(descriptor, settings); });
  if (result == 0) attributes = attributesOf(settings);
  return result;
}

int LinuxTerminal::setAttributes(int descriptor, Apply when, const TerminalAttributes& attributes) {
  if (when == Apply::now && !isStandardSpeed(attributes.speed)) {
    TerminalAttributes present;
    if (getAttributes(descriptor, present) < 0) return -1;
    if (present.speed != attributes.speed) return fail(EINVAL);
  }
  return apply(descriptor, when, attributes);
}

int LinuxTerminal::setSpecialSpeed(int descriptor, const TerminalAttributes& attributes) {
  return apply(descriptor, Apply::now, attributes);
}

int LinuxTerminal::apply(int descriptor, Apply when, const TerminalAttributes& attributes) {
  if (attributes.speed > std::numeric_limits<std::uint32_t>::max()) return fail(EINVAL);
  const DriverSettings asked = settingsOf(attributes);
  if (set(descriptor, when, asked) < 0 || verify(descriptor, asked) < 0) return -1;
  if (attributes.dtrDsrFlowControl || attributes.dcdOutputFlowControl) return fail(ENOTSUP);
  return 0;
}

int LinuxTerminal::set(int descriptor, Apply when, const DriverSettings& settings) {
  if (when == Apply::now || !outputFlowsOut(descriptor)) {
    return answer([&] { return driver_->setSettings(descriptor, settings); });
  }
  return answer([&] { return driver_->setSettingsAfterOutput(descriptor, settings); });
}

// Drivers answer 0 and keep another speed, or other data bits.
int LinuxTerminal::verify(int descriptor, const DriverSettings& asked) {
  DriverSettings taken;
  if (answer([&] { return driver_->getSettings(descriptor, taken); }) < 0) return -1;
  if (lineModes(taken) == lineModes(asked) && isSpeed(taken.speed, asked.speed)) return 0;

  int lines = 0;
  if (answer([&] { return driver_->getModemLines(descriptor, lines); }) == 0) return fail(EINVAL);
  return errno == ENOTTY ? 0 : -1;
}

// False when the output stands still: a device that holds the flow, or a stalled adapter, would keep the
// caller for ever, and half a minute more in close(). The output is discarded then.
bool LinuxTerminal::outputFlowsOut(int descriptor) {
  int least = std::numeric_limits<int>::max();
  for (int unmoved = 0; unmoved < patience; ++unmoved) {
    int count = 0;
    if (answer([&] { return driver_->getUnsentCount(descriptor, count); }) < 0 || count == 0) return true;
    if (count < least) {
      least = count;
      unmoved = 0;
    }
    driver_->pause();
  }
  answer([=, this] { return driver_->discardUnsent(descriptor); });
  return false;
}

int LinuxTerminal::getModemLines(int descriptor, int& lines) {
  const int result = answer([&] { return driver_->getModemLines(descriptor, lines); });
  if (result == 0 || errno != ENOTTY) return result;
  lines = 0;
  return 0;
}

int LinuxTerminal::setModemLines(int descriptor, int lines) {
  const int result = answer([=, this] { return driver_->setModemLines(descriptor, lines); });
  return result < 0 && errno == ENOTTY ? 0 : result;
}

ssize_t LinuxTerminal::read(int descriptor, void* buffer, std::size_t size) {
  return answer([=] { return ::read(descriptor, buffer, size); });
}

ssize_t LinuxTerminal::write(int descriptor, const void* bytes, std::size_t size) {
  return answer([=] { return ::write(descriptor, bytes, size); });
}

int LinuxTerminal::duplicate(int descriptor) {
  return answer([=] { return fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1); });
}

int LinuxTerminal::close(int descriptor) {
  unlock(descriptor);
  const int result = ::close(descriptor);
  // An interrupted close has closed all the same; made again, it could hit somebody else's descriptor.
  if (result < 0 && errno == EINTR) return 0;
  return answer([=] { return result; });
}

std::shared_ptr<Terminal> systemTerminal() {
  static const auto terminal = std::make_shared<LinuxTerminal>();
  return terminal;
}

}  // namespace tarsil
