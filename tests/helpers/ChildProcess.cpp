#include "tests/helpers/ChildProcess.hpp"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "tarsil/runtime/RunLoop.hpp"

namespace tarsil {

ChildProcess::ChildProcess(const std::vector<std::string>& command) {
  // A child that dies must not take the test with it through a write to its input.
  ::signal(SIGPIPE, SIG_IGN);
  std::array<int, 2> input{};
  std::array<int, 2> output{};
  if (pipe2(input.data(), O_CLOEXEC) != 0 || pipe2(output.data(), O_CLOEXEC) != 0) return;

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  std::vector<char*> arguments;
  for (const auto& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  pid_t pid = -1;
  if (posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ) == 0) pid_ = pid;
  posix_spawn_file_actions_destroy(&actions);

  close(input[0]);
  close(output[1]);
  input_ = input[1];
  outputDescriptor_ = output[0];
  fcntl(outputDescriptor_, F_SETFL, O_NONBLOCK);
  output_ = DispatchSource::read(outputDescriptor_, DispatchQueue::main());
  output_->setEventHandler([this] { read(); });
  output_->setCancelHandler([descriptor = outputDescriptor_] { close(descriptor); });
  output_->resume();
}

ChildProcess::~ChildProcess() {
  closeInput();
  if (output_) output_->cancel();
  signal(SIGKILL);
  wait();
}

void ChildProcess::writeLine(std::string_view line) {
  std::string text(line);
  text += '\n';
  [[maybe_unused]] const ssize_t count = write(input_, text.data(), text.size());
}

void ChildProcess::closeInput() {
  if (input_ >= 0) close(input_);
  input_ = -1;
}

bool ChildProcess::waitForLine(std::string_view beginning, Duration timeout) {
  const auto found = [&] {
    for (auto line = lines_.begin(); line != lines_.end(); ++line) {
      if (!line->starts_with(beginning)) continue;
      lines_.erase(lines_.begin(), line + 1);
      return true;
    }
    return false;
  };
  return found() || RunLoop::main().runUntil(found, timeout);
}

void ChildProcess::signal(int number) const {
  if (isRunning()) kill(pid_, number);
}

bool ChildProcess::hasEnded() const {
  siginfo_t end{};
  return isRunning() && waitid(P_PID, static_cast<id_t>(pid_), &end, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         end.si_pid == pid_;
}

int ChildProcess::wait() {
  if (!isRunning()) return 127;
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void ChildProcess::read() {
  std::array<char, 4096> buffer;
  const ssize_t count = ::read(outputDescriptor_, buffer.data(), buffer.size());
  if (count <= 0) return;
  partial_.append(buffer.data(), static_cast<std::size_t>(count));
  for (std::size_t end; (end = partial_.find('\n')) != std::string::npos; partial_.erase(0, end + 1)) {
    lines_.push_back(partial_.substr(0, end));
  }
}

}  // namespace tarsil
