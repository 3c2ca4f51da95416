#include "tarsil/platform/linux/LinuxTerminal.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <limits>
#include <utility>

#include "tarsil/platform/SystemPlatform.hpp"
#include "tarsil/platform/linux/KernelTerminalDriver.hpp"

namespace tarsil {
namespace {

// How often output may be found unmoved, 10 ms apart, before it counts as stuck.
constexpr int patience = 300;

// Bytes that are written at once, so that a writer which moves on can be told from one that is stuck: a
// pseudo-terminal does not tell what it still holds. 0.3 s at 9600 bit/s.
constexpr std::size_t piece = 256;

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

// What goes over the line, and how. Which parity counts only where there is one.
bool isSameLine(const TerminalAttributes& one, const TerminalAttributes& other) {
  const auto modes = [](const TerminalAttributes& attributes) {
    const bool hasParity = (attributes.modes.c_cflag & PARENB) != 0;
    return attributes.modes.c_cflag & (CSIZE | CSTOPB | PARENB | (hasParity ? PARODD : 0));
  };
  const auto hasStickParity = [](const TerminalAttributes& attributes) {
    return attributes.stickParity && (attributes.modes.c_cflag & PARENB) != 0;
  };
  return modes(one) == modes(other) && hasStickParity(one) == hasStickParity(other) &&
         one.rtsCtsFlowControl == other.rtsCtsFlowControl;
}

// An adapter divides its own clock and may tell the exact quotient: 115385 for 115200, say. Within 2 % it is
// the speed that was asked for; the kernel draws the same line.
bool isSpeed(std::uint64_t taken, std::uint64_t asked) {
  const std::uint64_t difference = taken > asked ? taken - asked : asked - taken;
  return difference <= asked / 50;
}

std::uint64_t inputSpeed(const TerminalAttributes& attributes) {
  return attributes.inputSpeed != 0 ? attributes.inputSpeed : attributes.speed;
}

}  // namespace

struct LinuxTerminal::Opening {
  /// The terminal was marked exclusive here. Root may open a terminal that another program marked; that mark
  /// is not ours to take away.
  bool isMarked = false;
  /// Held by the write that is under way.
  std::mutex writing;
  std::atomic<std::uint64_t> writtenPieces = 0;
  std::atomic<bool> isGivenUp = false;
};

LinuxTerminal::LinuxTerminal() : LinuxTerminal(std::make_shared<KernelTerminalDriver>()) {}

LinuxTerminal::LinuxTerminal(std::shared_ptr<TerminalDriver> driver) : driver_(std::move(driver)) {}

int LinuxTerminal::open(const std::string& path) {
  constexpr int flags = O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC;
  const int descriptor = aboveStandardStreams(answer([&] { return ::open(path.c_str(), flags); }));
  if (descriptor < 0 || lock(descriptor) == 0) return descriptor;
  closeKeepingReason(descriptor);
  return -1;
}

std::shared_ptr<LinuxTerminal::Opening> LinuxTerminal::openingOf(int descriptor) {
  const std::lock_guard guard(mutex_);
  auto& opening = openings_[descriptor];
  if (!opening) opening = std::make_shared<Opening>();
  return opening;
}

// Nothing that an earlier opening left under the same number counts.
void LinuxTerminal::beginOpening(int descriptor) {
  const std::lock_guard guard(mutex_);
  openings_.insert_or_assign(descriptor, std::make_shared<Opening>());
}

// Other programs heed one lock or the other; the advisory one also keeps root out.
int LinuxTerminal::lock(int descriptor) {
  beginOpening(descriptor);
  if (answer([=] { return flock(descriptor, LOCK_EX | LOCK_NB); }) < 0) return -1;
  int isMarked = 0;
  if (ioctl(descriptor, TIOCGEXCL, &isMarked) == 0 && isMarked != 0) return 0;
  if (answer([=] { return ioctl(descriptor, TIOCEXCL); }) < 0) return -1;
  openingOf(descriptor)->isMarked = true;
  return 0;
}

// Both outlive this descriptor as long as anybody else holds a copy: a watcher process, or a child that was
// forked and runs no other program. The mark goes first: once the lock is gone, the next opener sets its own.
void LinuxTerminal::unlock(int descriptor) {
  if (openingOf(descriptor)->isMarked) ioctl(descriptor, TIOCNXCL);
  {
    const std::lock_guard guard(mutex_);
    openings_.erase(descriptor);
  }
  answer([=] { return flock(descriptor, LOCK_UN); });
}

int LinuxTerminal::clearStatusFlags(int descriptor) {
  return answer([=] { return fcntl(descriptor, F_SETFL, 0); });
}

int LinuxTerminal::getAttributes(int descriptor, TerminalAttributes& attributes) {
  return answer([&] { return driver_->getSettings(descriptor, attributes); });
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
  constexpr std::uint64_t fastest = std::numeric_limits<std::uint32_t>::max();
  if (std::max(attributes.speed, attributes.inputSpeed) > fastest) return fail(EINVAL);
  if (set(descriptor, when, attributes) < 0 || verify(descriptor, attributes) < 0) return -1;
  if (attributes.dtrDsrFlowControl || attributes.dcdOutputFlowControl) return fail(ENOTSUP);
  return 0;
}

int LinuxTerminal::set(int descriptor, Apply when, const TerminalAttributes& attributes) {
  const auto setNow = [&] { return driver_->setSettings(descriptor, attributes); };
  if (when == Apply::now) return answer(setNow);
  // The system waits for a write that is under way, however long that takes, so that none may be.
  const auto opening = openingOf(descriptor);
  std::unique_lock writing(opening->writing, std::defer_lock);
  if (!outputFlowsOut(descriptor, *opening, writing)) return answer(setNow);
  return answer([&] { return driver_->setSettingsAfterOutput(descriptor, attributes); });
}

// Drivers answer 0 and keep another speed, or other data bits.
int LinuxTerminal::verify(int descriptor, const TerminalAttributes& asked) {
  TerminalAttributes taken;
  if (getAttributes(descriptor, taken) < 0) return -1;
  if (isSameLine(taken, asked) && isSpeed(taken.speed, asked.speed) &&
      isSpeed(inputSpeed(taken), inputSpeed(asked))) {
    return 0;
  }
  int lines = 0;
  if (answer([&] { return driver_->getModemLines(descriptor, lines); }) == 0) return fail(EINVAL);
  return errno == ENOTTY ? 0 : -1;
}

// True when all has left, and no write can begin. False when the output stands still: a device that holds the
// flow, a stalled adapter, or a pseudo-terminal that nobody reads would keep the caller for ever, and the
// first half a minute more in close(). The output is discarded then.
bool LinuxTerminal::outputFlowsOut(int descriptor, Opening& opening, std::unique_lock<std::mutex>& writing) {
  int least = std::numeric_limits<int>::max();
  std::uint64_t seenPieces = opening.writtenPieces;
  for (int unmoved = 0; unmoved < patience; ++unmoved) {
    const bool nobodyWrites = writing.owns_lock() || writing.try_lock();
    int count = 0;
    if (answer([&] { return driver_->getUnsentCount(descriptor, count); }) < 0) count = 0;
    if (nobodyWrites && count == 0) return true;
    if (count < least || opening.writtenPieces != seenPieces) {
      least = count;
      seenPieces = opening.writtenPieces;
      unmoved = 0;
    }
    driver_->pause();
  }
  giveOutputUp(descriptor, opening, writing);
  return false;
}

void LinuxTerminal::giveOutputUp(int descriptor, Opening& opening, std::unique_lock<std::mutex>& writing) {
  opening.isGivenUp = true;
  for (int tries = 0; tries < patience && !writing.owns_lock() && !writing.try_lock(); ++tries) {
    driver_->endWrites(descriptor);
    driver_->pause();
  }
  answer([=, this] { return driver_->discardUnsent(descriptor); });
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
  const auto opening = openingOf(descriptor);
  const std::lock_guard writing(opening->writing);
  const auto* first = static_cast<const char*>(bytes);
  std::size_t taken = 0;
  ssize_t count = 0;
  do {
    const std::size_t next = std::min(piece, size - taken);
    count = opening->isGivenUp ? -1 : answer([=] { return ::write(descriptor, first + taken, next); });
    if (count <= 0) break;
    taken += static_cast<std::size_t>(count);
    ++opening->writtenPieces;
  } while (taken < size);
  if (taken > 0 || count == 0) return static_cast<ssize_t>(taken);
  return opening->isGivenUp ? fail(ESHUTDOWN) : -1;
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
