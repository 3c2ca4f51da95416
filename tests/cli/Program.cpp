#include "tests/cli/Program.hpp"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>
#include <utility>

namespace tarsil::cli {
namespace {

struct Pipe {
  int readEnd = -1;
  int writeEnd = -1;
};

Pipe makePipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  return {ends[0], ends[1]};
}

/// False at the end of the stream.
bool readSome(int descriptor, std::string& text) {
  std::array<char, 4096> buffer{};
  const ssize_t count = read(descriptor, buffer.data(), buffer.size());
  if (count > 0) text.append(buffer.data(), static_cast<std::size_t>(count));
  return count > 0;
}

void closeIfOpen(int& descriptor) {
  if (descriptor >= 0) close(std::exchange(descriptor, -1));
}

}  // namespace

Program::Program(const std::vector<std::string>& arguments) {
  start(TARSIL_PROGRAM, arguments);
}

Program::Program(const std::string& path, const std::vector<std::string>& arguments) {
  start(path, arguments);
}

void Program::start(const std::string& path, const std::vector<std::string>& arguments) {
  const Pipe in = makePipe();
  const Pipe out = makePipe();
  const Pipe err = makePipe();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in.readEnd, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out.writeEnd, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err.writeEnd, STDERR_FILENO);

  std::vector<std::string> words{path};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (auto& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  const int error = posix_spawn(&process_, path.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(in.readEnd);
  close(out.writeEnd);
  close(err.writeEnd);
  input_ = in.writeEnd;
  output_ = out.readEnd;
  errors_ = err.readEnd;
  if (error != 0) throw std::runtime_error("cannot start " + path);
  // A program that ended early is the test's finding, not the test's end.
  std::signal(SIGPIPE, SIG_IGN);
}

Program::~Program() {
  closeIfOpen(input_);
  closeIfOpen(output_);
  closeIfOpen(errors_);
  if (process_ < 0) return;
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

void Program::write(const std::string& text) const {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t count = ::write(input_, text.data() + done, text.size() - done);
    if (count < 0) return;
    done += static_cast<std::size_t>(count);
  }
}

void Program::closeInput() {
  closeIfOpen(input_);
}

std::string Program::readLine() {
  while (unread_.find('\n') == std::string::npos) {
    if (!readSome(output_, unread_)) throw std::runtime_error("the output ended: " + unread_);
  }
  const std::size_t end = unread_.find('\n');
  const std::string line = unread_.substr(0, end);
  unread_.erase(0, end + 1);
  return line;
}

void Program::signal(int number) const {
  kill(process_, number);
}

Program::Ended Program::wait() {
  closeInput();
  Ended ended;
  ended.output = std::exchange(unread_, "");
  std::array streams{pollfd{output_, POLLIN, 0}, pollfd{errors_, POLLIN, 0}};
  while (streams[0].fd >= 0 || streams[1].fd >= 0) {
    poll(streams.data(), streams.size(), -1);
    if (streams[0].revents != 0 && !readSome(output_, ended.output)) streams[0].fd = -1;
    if (streams[1].revents != 0 && !readSome(errors_, ended.errors)) streams[1].fd = -1;
  }
  int status = 0;
  waitpid(std::exchange(process_, -1), &status, 0);
  ended.code = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  return ended;
}

Program::Ended run(const std::vector<std::string>& arguments, const std::string& input) {
  Program program(arguments);
  program.write(input);
  return program.wait();
}

}  // namespace tarsil::cli
