#include "tests/cli/TerminalProgram.hpp"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

namespace tarsil::cli {

TerminalProgram::TerminalProgram(const std::vector<std::string>& arguments)
    : descriptor_(open(terminal_.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) {
  termios modes{};
  tcgetattr(descriptor_, &modes);
  modes.c_lflag |= ICANON | ECHO | ISIG;
  modes.c_oflag |= OPOST | ONLCR;
  tcsetattr(descriptor_, TCSANOW, &modes);
  const winsize size{.ws_row = 24, .ws_col = 100, .ws_xpixel = 0, .ws_ypixel = 0};
  ioctl(descriptor_, TIOCSWINSZ, &size);

  // A session leader's first terminal is the one whose Ctrl-C it gets.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, terminal_.path().c_str(), O_RDWR, 0);
  posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDERR_FILENO);

  std::vector<std::string> words{TARSIL_PROGRAM};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (auto& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  const int error = posix_spawn(&process_, TARSIL_PROGRAM, &actions, &attributes, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (error != 0) throw std::runtime_error("cannot start the program");
}

TerminalProgram::~TerminalProgram() {
  close(descriptor_);
  if (process_ < 0) return;
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

void TerminalProgram::press(std::string_view keys) {
  terminal_.write(Bytes(keys.begin(), keys.end()));
}

void TerminalProgram::signal(int number) const {
  kill(process_, number);
}

bool TerminalProgram::readSome() {
  pollfd readable{.fd = terminal_.descriptor(), .events = POLLIN, .revents = 0};
  constexpr int timeout = 60'000;  // ms
  if (poll(&readable, 1, timeout) != 1) return false;
  const Bytes bytes = terminal_.read();
  written_.append(bytes.begin(), bytes.end());
  return true;
}

void TerminalProgram::waitFor(const std::string& text) {
  std::size_t found = written_.find(text, seen_);
  for (; found == std::string::npos; found = written_.find(text, seen_)) {
    if (!readSome())
      throw std::runtime_error("the terminal is silent; the last words: " + written_.substr(seen_));
  }
  seen_ = found + text.size();
}

int TerminalProgram::wait() {
  int status = 0;
  const bool isGone = terminal_.descriptor() < 0;
  // It must never wait for its terminal.
  while (waitpid(process_, &status, isGone ? 0 : WNOHANG) == 0) {
    pollfd readable{.fd = terminal_.descriptor(), .events = POLLIN, .revents = 0};
    constexpr int glance = 20;  // ms
    if (poll(&readable, 1, glance) == 1) readSome();
  }
  process_ = -1;
  pollfd readable{.fd = terminal_.descriptor(), .events = POLLIN, .revents = 0};
  while (poll(&readable, 1, 0) == 1 && readSome()) continue;
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

termios TerminalProgram::modes() const {
  termios modes{};
  tcgetattr(descriptor_, &modes);
  return modes;
}

}  // namespace tarsil::cli
