#include "tools/tarsil/run/PartnerProcesses.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tools/tarsil/CommandFailure.hpp"

namespace tarsil::cli {
namespace {

constexpr int startTimeout = 10000;  // ms

struct Pipe {
  Pipe() {
    if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  }
  std::array<int, 2> ends{};
  int out() const { return ends[0]; }
  int in() const { return ends[1]; }
};

/// The first line that the descriptor gives; empty when none comes in time.
std::string readLine(int descriptor) {
  std::string line;
  for (;;) {
    pollfd ready{.fd = descriptor, .events = POLLIN, .revents = 0};
    char character = 0;
    if (poll(&ready, 1, startTimeout) != 1 || read(descriptor, &character, 1) != 1) return {};
    if (character == '\n') return line;
    line.push_back(character);
  }
}

pid_t spawnSimulator(const std::string& model, const Pipe& orders, const Pipe& answers) {
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, orders.out(), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&files, answers.in(), STDOUT_FILENO);

  // A group of its own: the Ctrl-C that stops the session must leave the devices alive until the belt stands.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK);

  std::string program = "tarsil";
  std::string command = "simulate";
  std::string modelArgument = model;
  std::string ordersOption = "--orders";
  std::string cableOption = "--cable";
  std::string cable = "adapter";  // what stands before most machines
  std::array<char*, 7> arguments{
      program.data(), command.data(), modelArgument.data(), ordersOption.data(), cableOption.data(),
      cable.data(),   nullptr};
  pid_t process = -1;
  const int error = posix_spawn(&process, "/proc/self/exe", &files, &attributes, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  posix_spawnattr_destroy(&attributes);
  if (error != 0) throw std::system_error(error, std::generic_category(), "cannot start a simulated device");
  return process;
}

}  // namespace

PartnerProcesses::~PartnerProcesses() {
  for (const Partner& partner : partners_) {
    close(partner.orders);
    close(partner.answers);
  }
  for (const Partner& partner : partners_) waitpid(partner.process, nullptr, 0);
}

void PartnerProcesses::add(const std::string& model, const std::string& portName) {
  const Pipe orders;
  const Pipe answers;
  const pid_t process = spawnSimulator(model, orders, answers);
  close(orders.out());
  close(answers.in());
  partners_.push_back({process, orders.in(), answers.out()});

  const std::string path = readLine(answers.out());
  if (path.empty()) throw CommandFailure(failed, fmt::format("the simulated {} did not start", model));
  VirtualDeviceRegistry::shared()->add(path, portName);
}

void PartnerProcesses::demand(double effort) {
  const std::string order = fmt::format("effort {:.2f}\n", effort);
  for (const Partner& partner : partners_) {
    // A device that has died is noticed at its port.
    if (write(partner.orders, order.data(), order.size()) < 0) continue;
  }
}

}  // namespace tarsil::cli
