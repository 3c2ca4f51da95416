#include "tests/guard-watch/WatchedLine.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <limits>
#include <system_error>

namespace tarsil {
namespace {

int milliseconds(Duration duration) {
  return static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(duration).count());
}

}  // namespace

int openLine(const std::string& path, speed_t speed) {
  const int line = open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (line < 0) return line;
  if (flock(line, LOCK_EX | LOCK_NB) != 0 || ioctl(line, TIOCEXCL) != 0) {
    const int reason = errno;
    close(line);
    errno = reason;
    return -1;
  }
  termios settings{};
  tcgetattr(line, &settings);
  cfmakeraw(&settings);
  tcsetattr(line, TCSANOW, &settings);
  setSpeed(line, speed);
  return line;
}

void setSpeed(int line, speed_t speed) {
  termios settings{};
  tcgetattr(line, &settings);
  cfsetspeed(&settings, speed);
  tcsetattr(line, TCSANOW, &settings);
}

WatchedLine::WatchedLine() : device_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)) {
  std::array<char, PATH_MAX> path{};
  if (device_ < 0 || grantpt(device_) != 0 || unlockpt(device_) != 0 ||
      ptsname_r(device_, path.data(), path.size()) != 0) {
    throw std::system_error(errno, std::generic_category(), "no pseudo-terminal to be had");
  }
  path_ = path.data();
}

WatchedLine::~WatchedLine() {
  close(device_);
}

speed_t WatchedLine::speed() const {
  termios settings{};
  tcgetattr(device_, &settings);
  return cfgetospeed(&settings);
}

bool WatchedLine::waitForBytes(Duration timeout) const {
  pollfd end{.fd = device_, .events = POLLIN, .revents = 0};
  return poll(&end, 1, milliseconds(timeout)) == 1 && (end.revents & POLLIN) != 0;
}

Bytes WatchedLine::read() {
  Bytes bytes(65536);
  const ssize_t count = ::read(device_, bytes.data(), bytes.size());
  if (count < 0 && errno == EIO) isLetGo_ = true;
  bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return bytes;
}

Bytes WatchedLine::read(std::size_t count, Duration timeout) {
  Bytes all;
  const auto end = std::chrono::steady_clock::now() + timeout;
  while (all.size() < count && !isLetGo_) {
    const Bytes some = read();
    all.insert(all.end(), some.begin(), some.end());
    if (!some.empty() || isLetGo_) continue;
    const Duration left = end - std::chrono::steady_clock::now();
    if (left <= Duration::zero()) break;
    pollfd device{.fd = device_, .events = POLLIN, .revents = 0};
    poll(&device, 1, milliseconds(left));
  }
  return all;
}

Bytes WatchedLine::readToTheEnd(Duration timeout) {
  return read(std::numeric_limits<std::size_t>::max(), timeout);
}

}  // namespace tarsil
