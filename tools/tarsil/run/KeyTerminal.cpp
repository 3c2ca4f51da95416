#include "tools/tarsil/run/KeyTerminal.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace tarsil::cli {
namespace {

constexpr std::string_view enterScreen = "\x1b[?1049h\x1b[?25l";
constexpr std::string_view leaveScreen = "\x1b[?25h\x1b[?1049l";

/// For the signal handler.
const KeyTerminal* volatile theTerminal = nullptr;

/// How long a picture waits for a terminal that takes no output, ms.
constexpr int patience = 20;

int openedAnew(int terminal) {
  std::array<char, 128> path{};
  if (const int error = ttyname_r(terminal, path.data(), path.size())) {
    throw std::system_error(error, std::generic_category(), "terminal");
  }
  const int descriptor = ::open(path.data(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), path.data());
  return descriptor;
}

}  // namespace

KeyTerminal::KeyTerminal(int input, int output)
    : input_(input), output_(output), screen_(openedAnew(output)) {
  if (tcgetattr(input_, &before_) < 0) {
    const int error = errno;
    ::close(screen_);
    throw std::system_error(error, std::generic_category(), "terminal");
  }
  termios keys = before_;
  keys.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
  keys.c_iflag &= static_cast<tcflag_t>(~IXON);
  keys.c_cc[VMIN] = 1;
  keys.c_cc[VTIME] = 0;
  keys.c_cc[VQUIT] = _POSIX_VDISABLE;
  keys.c_cc[VSUSP] = _POSIX_VDISABLE;
  tcsetattr(input_, TCSANOW, &keys);
  write(enterScreen);

  theTerminal = this;
  struct sigaction handler {};
  handler.sa_handler = restoreAndDie;
  handler.sa_flags = static_cast<int>(SA_RESETHAND);
  sigemptyset(&handler.sa_mask);
  for (std::size_t i = 0; i < deadlySignals.size(); ++i) {
    sigaction(deadlySignals[i], &handler, &handlersBefore_[i]);
  }
}

KeyTerminal::~KeyTerminal() {
  for (std::size_t i = 0; i < deadlySignals.size(); ++i) {
    sigaction(deadlySignals[i], &handlersBefore_[i], nullptr);
  }
  theTerminal = nullptr;
  restore();
  write(farewell_);
  ::close(screen_);
}

// Only calls that are allowed in a signal handler.
void KeyTerminal::restore() const {
  write(leaveScreen);
  tcsetattr(input_, TCSANOW, &before_);
}

void KeyTerminal::restoreAndDie(int signal) {
  if (const KeyTerminal* terminal = theTerminal) terminal->restore();
  raise(signal);
}

KeyTerminal::Size KeyTerminal::size() const {
  winsize size{};
  if (ioctl(output_, TIOCGWINSZ, &size) < 0 || size.ws_row == 0 || size.ws_col == 0) return {};
  return {size.ws_row, size.ws_col};
}

void KeyTerminal::write(std::string_view text) const {
  while (!text.empty()) {
    const ssize_t count = ::write(screen_, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    pollfd writable{.fd = screen_, .events = POLLOUT, .revents = 0};
    if (count < 0 && errno == EAGAIN && ::poll(&writable, 1, patience) > 0) continue;
    if (count <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
}

}  // namespace tarsil::cli
