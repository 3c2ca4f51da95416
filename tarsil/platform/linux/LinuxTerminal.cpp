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

// A vanished device says EIO, or ENODEV, where other systems say ENXIO.
Failure lastFailure() {
  return Failure{errno == EIO || errno == ENODEV ? ENXIO : errno};
}

// Makes the call again when a signal interrupted it.
template <class Call>
auto answer(const Call& call) -> Result<decltype(call())> {
  auto value = call();
  while (value < 0 && errno == EINTR) value = call();
  if (value >= 0) return value;
  return lastFailure();
}

Result<std::size_t> counted(const Result<ssize_t>& answer) {
  if (!answer) return Failure{answer.error()};
  return static_cast<std::size_t>(*answer);
}

Result<int> aboveStandardStreams(const Result<int>& opened) {
  if (!opened || *opened > STDERR_FILENO) return opened;
  const auto moved = answer([&] { return fcntl(*opened, F_DUPFD_CLOEXEC, STDERR_FILENO + 1); });
  ::close(*opened);
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
  /// No write begins any more, and the one that is under way is to end.
  std::atomic<bool> outputIsOver = false;
};

LinuxTerminal::LinuxTerminal() : LinuxTerminal(std::make_shared<KernelTerminalDriver>()) {}

LinuxTerminal::LinuxTerminal(std::shared_ptr<TerminalDriver> driver) : driver_(std::move(driver)) {}

Result<int> LinuxTerminal::open(const std::string& path) {
  constexpr int flags = O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC;
  const auto opened = aboveStandardStreams(answer([&] { return ::open(path.c_str(), flags); }));
  if (!opened) return opened;
  if (const auto locked = lock(*opened); !locked) {
    ::close(*opened);
    return Failure{locked.error()};
  }
  return opened;
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
Result<> LinuxTerminal::lock(int descriptor) {
  beginOpening(descriptor);
  if (auto locked = answer([=] { return flock(descriptor, LOCK_EX | LOCK_NB); }); !locked) return locked;
  int isMarked = 0;
  if (ioctl(descriptor, TIOCGEXCL, &isMarked) == 0 && isMarked != 0) return {};
  if (auto marked = answer([=] { return ioctl(descriptor, TIOCEXCL); }); !marked) return marked;
  openingOf(descriptor)->isMarked = true;
  return {};
}

// Both outlive this descriptor as long as anybody else holds a copy: a watcher process, or a child that was
// forked and runs no other program. The mark goes first: once the lock is gone, the next opener sets its own.
void LinuxTerminal::unlock(int descriptor) {
  if (openingOf(descriptor)->isMarked) ioctl(descriptor, TIOCNXCL);
  {
    const std::lock_guard guard(mutex_);
    openings_.erase(descriptor);
  }
  // Closing the last copy unlocks it too.
  static_cast<void>(answer([=] { return flock(descriptor, LOCK_UN); }));
}

Result<> LinuxTerminal::clearStatusFlags(int descriptor) {
  return answer([=] { return fcntl(descriptor, F_SETFL, 0); });
}

Result<TerminalAttributes> LinuxTerminal::getAttributes(int descriptor) {
  TerminalAttributes attributes;
  const auto got = answer([&] { return driver_->getSettings(descriptor, attributes); });
  if (!got) return Failure{got.error()};
  return attributes;
}

Result<> LinuxTerminal::setAttributes(int descriptor, Apply when, const TerminalAttributes& attributes) {
  if (when == Apply::now && !isStandardSpeed(attributes.speed)) {
    const auto present = getAttributes(descriptor);
    if (!present) return present;
    if (present->speed != attributes.speed) return Failure{EINVAL};
  }
  return apply(descriptor, when, attributes);
}

Result<> LinuxTerminal::setSpecialSpeed(int descriptor, const TerminalAttributes& attributes) {
  return apply(descriptor, Apply::now, attributes);
}

Result<> LinuxTerminal::apply(int descriptor, Apply when, const TerminalAttributes& attributes) {
  constexpr std::uint64_t fastest = std::numeric_limits<std::uint32_t>::max();
  if (std::max(attributes.speed, attributes.inputSpeed) > fastest) return Failure{EINVAL};
  if (auto applied = set(descriptor, when, attributes); !applied) return applied;
  if (auto taken = verify(descriptor, attributes); !taken) return taken;
  if (attributes.dtrDsrFlowControl || attributes.dcdOutputFlowControl) return Failure{ENOTSUP};
  return {};
}

Result<> LinuxTerminal::set(int descriptor, Apply when, const TerminalAttributes& attributes) {
  const auto setNow = [&] { return driver_->setSettings(descriptor, attributes); };
  if (when == Apply::now) return answer(setNow);
  // The system waits for a write that is under way, however long that takes, so that none may be.
  const auto opening = openingOf(descriptor);
  std::unique_lock writing(opening->writing, std::defer_lock);
  const bool flowedOut = outputFlowsOut(descriptor, *opening, writing);
  // A write that waits for its turn would go out at another speed, and nobody would be left to end it.
  opening->outputIsOver = true;
  if (!flowedOut) return answer(setNow);
  return answer([&] { return driver_->setSettingsAfterOutput(descriptor, attributes); });
}

// Drivers answer 0 and keep another speed, or other data bits.
Result<> LinuxTerminal::verify(int descriptor, const TerminalAttributes& asked) {
  const auto taken = getAttributes(descriptor);
  if (!taken) return taken;
  if (isSameLine(*taken, asked) && isSpeed(taken->speed, asked.speed) &&
      isSpeed(inputSpeed(*taken), inputSpeed(asked))) {
    return {};
  }
  int lines = 0;
  const Result<> line = answer([&] { return driver_->getModemLines(descriptor, lines); });
  if (line) return Failure{EINVAL};
  return line.error() == ENOTTY ? Result<>() : line;
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
    if (!answer([&] { return driver_->getUnsentCount(descriptor, count); })) count = 0;
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
  opening.outputIsOver = true;
  for (int tries = 0; tries < patience && !writing.owns_lock() && !writing.try_lock(); ++tries) {
    driver_->endWrites(descriptor);
    driver_->pause();
  }
  // What a driver keeps all the same, it drops when the line is closed.
  static_cast<void>(answer([=, this] { return driver_->discardUnsent(descriptor); }));
}

Result<int> LinuxTerminal::getModemLines(int descriptor) {
  int lines = 0;
  const auto got = answer([&] { return driver_->getModemLines(descriptor, lines); });
  if (got) return lines;
  if (got.error() == ENOTTY) return 0;
  return Failure{got.error()};
}

Result<> LinuxTerminal::setModemLines(int descriptor, int lines) {
  const Result<> set = answer([=, this] { return driver_->setModemLines(descriptor, lines); });
  return set.error() == ENOTTY ? Result<>() : set;
}

Result<std::size_t> LinuxTerminal::read(int descriptor, void* buffer, std::size_t size) {
  return counted(answer([=] { return ::read(descriptor, buffer, size); }));
}

Result<std::size_t> LinuxTerminal::write(int descriptor, const void* bytes, std::size_t size) {
  const auto opening = openingOf(descriptor);
  const std::lock_guard writing(opening->writing);
  const auto* first = static_cast<const char*>(bytes);
  const auto writeSome = [&](const char* from, std::size_t count) -> Result<ssize_t> {
    if (!opening->outputIsOver) {
      const auto written = answer([=] { return ::write(descriptor, from, count); });
      if (written || !opening->outputIsOver) return written;
    }
    return Failure{ESHUTDOWN};
  };
  std::size_t taken = 0;
  Result<ssize_t> count = 0;
  do {
    count = writeSome(first + taken, std::min(piece, size - taken));
    if (*count <= 0) break;
    taken += static_cast<std::size_t>(*count);
    ++opening->writtenPieces;
  } while (taken < size);
  if (taken > 0) return taken;
  return counted(count);
}

Result<int> LinuxTerminal::duplicate(int descriptor) {
  return answer([=] { return fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1); });
}

Result<> LinuxTerminal::close(int descriptor) {
  unlock(descriptor);
  if (::close(descriptor) == 0) return {};
  // An interrupted close has closed all the same; made again, it could hit somebody else's descriptor.
  if (errno == EINTR) return {};
  return lastFailure();
}

std::shared_ptr<Terminal> systemTerminal() {
  static const auto terminal = std::make_shared<LinuxTerminal>();
  return terminal;
}

}  // namespace tarsil
