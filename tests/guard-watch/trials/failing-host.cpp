// failing-host TERMINAL LINE RECORDS: a host that has TERMINAL watched over as LINE, writes the time of each
// of its heartbeats (64 bits, ns), and fails in the way that a letter on its standard input says. Once its
// watcher has taken over it says so and ends.

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "tests/guard-watch/WatchedLine.hpp"
#include "tests/guard-watch/trials/trial.hpp"

using namespace tarsil;

namespace {

int line = -1;

void say(std::int64_t number) {
  [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, &number, sizeof number);
}

std::int64_t now() {
  timespec time{};
  clock_gettime(CLOCK_BOOTTIME, &time);
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

// What ports do when their process ends: old settings come back, and the mark that keeps others out goes.
void closeInOrder() {
  setSpeed(line, B115200);
  ioctl(line, TIOCNXCL);
  close(line);
}

volatile int depth = 0;

// Not endless to a compiler, nor a tail call.
int overflow(int level) {  // NOLINT(misc-no-recursion)
  volatile char frame[4096];
  frame[0] = static_cast<char>(level);
  depth = level;
  return depth < 0 ? 0 : overflow(level + 1) + frame[0];
}

void exhaustMemory() {
  const rlimit limit{.rlim_cur = 1U << 26, .rlim_max = 1U << 26};
  setrlimit(RLIMIT_AS, &limit);
  for (;;) {
    auto* memory = new char[1U << 20];
    memory[0] = 1;
  }
}

void fail(char order) {
  switch (order) {
    case trial::orderedAbort:
      std::abort();
    case trial::orderedStackOverflow:
      overflow(0);
      break;
    case trial::orderedExhaustion:
      exhaustMemory();
      break;
    case trial::orderedEndlessLoop:
      for (;;) depth = 1;
    case trial::orderedExit:
      std::exit(0);
    case trial::orderedOtherProgram:
      execl("/bin/true", "true", nullptr);
      break;
    default:
      break;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const rlimit none{.rlim_cur = 0, .rlim_max = 0};
  setrlimit(RLIMIT_CORE, &none);
  line = openLine(argv[1], B4800);
  std::atexit(closeInOrder);

  auto [answer, watcher] = Watcher::start(
      line, {.line = argv[2], .stop = trial::stop(), .heartbeat = trial::heartbeat, .records = argv[3]});
  if (!answer.isAccepted()) {
    std::fprintf(stderr, "%s\n", answer.reason().c_str());
    return 1;
  }
  for (;;) {
    const std::int64_t beat = now();
    if (watcher->alive() != Watcher::State::watching) break;
    say(beat);
    pollfd orders{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
    char order = 0;
    if (poll(&orders, 1, 100) == 1 && read(STDIN_FILENO, &order, 1) == 1) fail(order);
  }
  say(trial::tookOver);
}
