#include "simulators/lines/PseudoTerminal.hpp"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/inotify.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <system_error>

namespace tarsil::simulators {

PseudoTerminal::PseudoTerminal() {
  std::array<char, PATH_MAX> path{};
  int slave = -1;
  if (openpty(&master_, &slave, path.data(), nullptr, nullptr) != 0) {
    throw std::system_error(errno, std::generic_category(), "no pseudo-terminal to be had");
  }
  slave_ = std::make_shared<const FileDescriptor>(slave);
  path_ = path.data();
  // Raw from the start: an echo of our own bytes would look like commands.
  termios attributes{};
  tcgetattr(slave, &attributes);
  cfmakeraw(&attributes);
  tcsetattr(slave, TCSANOW, &attributes);
  fcntl(master_, F_SETFL, O_NONBLOCK);
  fcntl(master_, F_SETFD, FD_CLOEXEC);
  fcntl(slave, F_SETFD, FD_CLOEXEC);
  openings_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (inotify_add_watch(openings_, path_.c_str(), IN_OPEN | IN_CLOSE) < 0) {
    const int error = errno;
    hangUp();
    throw std::system_error(error, std::generic_category(), "nobody tells who opens " + path_);
  }
}

PseudoTerminal::~PseudoTerminal() {
  hangUp();
}

Bytes PseudoTerminal::read() {
  Bytes bytes(4096);
  const ssize_t count = ::read(master_, bytes.data(), bytes.size());
  bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return bytes;
}

void PseudoTerminal::write(ByteView bytes) {
  // A far end that reads nothing for long loses what does not fit, as on a real line.
  if (::write(master_, bytes.data(), bytes.size()) < 0) return;
}

bool PseudoTerminal::hasUnread() const {
  // The kernel hands written bytes over in its own time, and FIONREAD does not count those that are on their
  // way; poll waits for them to arrive before it answers.
  pollfd farEnd{.fd = slave_->get(), .events = POLLIN, .revents = 0};
  return poll(&farEnd, 1, 0) == 1 && (farEnd.revents & POLLIN) != 0;
}

void PseudoTerminal::discardUnread() {
  tcflush(slave_->get(), TCIFLUSH);
}

bool PseudoTerminal::isOpenElsewhere() {
  alignas(inotify_event) std::array<char, 4096> events{};
  for (ssize_t size = 0; (size = ::read(openings_, events.data(), events.size())) > 0;) {
    // The events of a watched file carry no name, so each is of the same size.
    for (std::size_t at = 0; at < static_cast<std::size_t>(size); at += sizeof(inotify_event)) {
      inotify_event event{};
      std::memcpy(&event, events.data() + at, sizeof event);
      if ((event.mask & IN_OPEN) != 0 && openers_++ == 0) discardUnread();
      if ((event.mask & IN_CLOSE) != 0 && openers_ > 0 && --openers_ == 0) discardUnread();
    }
  }
  return openers_ > 0;
}

void PseudoTerminal::hangUp() {
  if (master_ < 0) return;
  close(master_);
  close(openings_);
  openings_ = -1;
  master_ = -1;
}

}  // namespace tarsil::simulators
