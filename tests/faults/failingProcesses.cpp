// faults-failing-processes [COUNT [SEED [AT_ONCE]]]: COUNT hosts on the real clock, each a process of its own
// with its watcher, that meet something which the runtime cannot go on without: memory, descriptors, threads,
// the calls that it waits with. The host may stop; the machine, which is another process, stands then, and
// the next host on the same line gets its exercise. Prints what became of the hosts, and what went wrong;
// ends with 1 when something did.

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulators/devices/simulatedDevices.hpp"
#include "simulators/lines/PseudoTerminalLine.hpp"
#include "simulators/physics/Patient.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tarsil/support/process.hpp"
#include "tests/faults/FailingCalls.hpp"
#include "tests/faults/Walk.hpp"
#include "tests/helpers/TemporaryUserFolders.hpp"
#include "tests/helpers/plugInAdapter.hpp"

using namespace tarsil;
using namespace std::chrono_literals;

namespace {

constexpr Duration roundTime = 100ms;
/// For a machine to be seen to stand, and for an exercise, on a computer that is busy with others.
constexpr Duration patience = 120s;
/// Descriptors are taken away by a limit in place of a failing call.
constexpr const char* descriptors = "descriptors";

/// What may fail, and how often it is done in an exercise at the most.
struct Danger {
  const char* call;
  std::size_t most;
};
constexpr std::array dangers{
    Danger{"memory", 20000},
    Danger{"memory", 2000},
    Danger{descriptors, 40},
    Danger{"thread", 3},
    Danger{"eventfd", 2},
    Danger{"eventfd_write", 400},
    Danger{"eventfd_read", 400},
    Danger{"epoll_create1", 2},
    Danger{"epoll_ctl ADD", 12},
    Danger{"epoll_ctl MOD", 100},
    Danger{"epoll_wait", 2000},
    Danger{"timerfd_create", 2},
    Danger{"timerfd_settime", 2000},
    Danger{"ppoll", 1000},
};

Fault faultOf(std::uint64_t number, std::mt19937_64& random) {
  const Danger& danger = dangers.at(number % dangers.size());
  Fault fault{.call = danger.call, .number = random() % danger.most};
  const auto errors = FailingCalls::faultsOf(danger.call);
  if (!errors.empty()) fault.error = errors[random() % errors.size()];
  return fault;
}

// The host

[[noreturn]] void beTheHost(const std::string& path, const std::string& serialNumber, const Fault* fault) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  exchangeProcessHooks({.print = [](std::string_view, PrintedText) {}});
  SerialDeviceRegistry::exchangeShared(VirtualDeviceRegistry::shared());
  const TemporaryUserFolders folders;
  if (fault && fault->call == descriptors) {
    const rlimit limit{.rlim_cur = fault->number, .rlim_max = 4096};
    setrlimit(RLIMIT_NOFILE, &limit);
  } else if (fault) {
    FailingCalls::arm(*fault);
  }
  plugInAdapter(path, serialNumber);
  Walk walk({.exercise = path, .journals = folders.home(), .watcher = std::string(), .heartbeat = 5s});
  const auto pass = [&walk](Duration longest) {
    for (const auto end = Clock::now() + longest; !walk.isOver() && Clock::now() < end;) {
      walk.goRound();
      const auto next = Clock::now() + roundTime;
      RunLoop::main().runUntil([&] { return walk.isOver() || Clock::now() >= next; }, roundTime);
    }
  };
  // Where nothing can be opened, nothing comes of waiting.
  pass(fault ? 25s : patience);
  const bool isDone = walk.isOver();
  walk.giveUp();
  pass(30s);
  _exit(isDone ? 0 : 1);
}

// The machine, which looks on

class Trial {
 public:
  explicit Trial(Fault fault) : fault_(std::move(fault)) {}

  /// "stopped", "got through", "gave up"; or what went wrong, with a capital letter.
  std::string run() {
    const int first = runHost(&fault_);
    std::string end;
    if (WIFEXITED(first) && WEXITSTATUS(first) <= 1)
      end = WEXITSTATUS(first) == 0 ? "got through" : "gave up";
    if (WIFSIGNALED(first) && WTERMSIG(first) == SIGABRT) end = "stopped";
    if (end.empty()) return "The host ended by " + std::string(strsignal(WTERMSIG(first)));
    if (!RunLoop::main().runUntil([this] { return treadmill_->truth().actual.speed == 0; }, patience))
      return "The machine goes on, the host " + end;
    const int next = runHost(nullptr);
    if (!WIFEXITED(next) || WEXITSTATUS(next) != 0) return "The next host does not get its exercise";
    return end;
  }

 private:
  int runHost(const Fault* fault) {
    // Without a copy of what this process holds: the host would keep the machine's line.
    const pid_t host = fork();
    if (host == 0) {
      execHost(fault);
    }
    int status = 0;
    const auto hasEnded = [&] { return waitpid(host, &status, WNOHANG) == host; };
    const auto look = Timer::scheduled(20ms, true, [](Timer&) {});
    const bool ended = RunLoop::main().runUntil(hasEnded, 3 * patience);
    look->invalidate();
    if (!ended) {
      kill(host, SIGKILL);
      waitpid(host, &status, 0);
    }
    return status;
  }

  [[noreturn]] void execHost(const Fault* fault) {
    const std::string serialNumber = "trial-" + std::to_string(getppid());
    const std::string& path = line_.hostEnd().path();
    const std::string number = fault ? std::to_string(fault->number) : "";
    const std::string error = fault ? std::to_string(fault->error) : "";
    execl("/proc/self/exe", "faults-failing-processes", "host", path.c_str(), serialNumber.c_str(),
          fault ? fault->call.c_str() : nullptr, number.c_str(), error.c_str(), nullptr);
    _exit(127);
  }

  const Fault fault_;
  simulators::Patient patient_;
  const std::unique_ptr<simulators::SimulatedDevice> treadmill_ =
      simulators::makeSimulatedDevice("LodeTreadmill", patient_);
  simulators::PseudoTerminalLine line_{*treadmill_};
};

std::map<std::string, std::map<std::string, int>> ends;
int broken = 0;

struct Running {
  Fault fault;
  int answer = -1;
  pid_t process = -1;
};

Running begin(const Fault& fault) {
  std::array<int, 2> answer{};
  if (pipe2(answer.data(), O_CLOEXEC) != 0) std::abort();
  Running running{.fault = fault, .answer = answer[0]};
  running.process = fork();
  if (running.process != 0) {
    close(answer[1]);
    return running;
  }
  const std::string end = Trial(fault).run();
  _exit(write(answer[1], end.data(), end.size()) < 0 ? 1 : 0);
}

void finish(const Running& running) {
  std::array<char, 256> buffer{};
  const ssize_t count = read(running.answer, buffer.data(), buffer.size());
  std::string end(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
  close(running.answer);
  waitpid(running.process, nullptr, 0);
  if (end.empty()) end = "The machine's process ended";
  ++ends[running.fault.call][end];
  if (std::isupper(static_cast<unsigned char>(end.front())) == 0) return;
  ++broken;
  std::printf("%s: %s\n", text(running.fault).c_str(), end.c_str());
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  const rlimit noCore{};
  setrlimit(RLIMIT_CORE, &noCore);
  if (argc > 1 && std::string(argv[1]) == "host") {
    std::freopen("/dev/null", "w", stderr);
    Fault fault;
    if (argc == 7)
      fault = {.call = argv[4], .number = std::strtoull(argv[5], nullptr, 10), .error = std::atoi(argv[6])};
    beTheHost(argv[2], argv[3], argc == 7 ? &fault : nullptr);
  }
  const std::uint64_t count = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 28;
  const std::uint64_t seed = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
  const std::size_t atOnce = argc > 3 ? std::strtoull(argv[3], nullptr, 10) : 14;
  std::mt19937_64 random(seed);
  std::vector<Running> running;
  for (std::uint64_t number = 0; number < count; ++number) {
    if (running.size() == atOnce) {
      finish(running.front());
      running.erase(running.begin());
    }
    running.push_back(begin(faultOf(number, random)));
  }
  for (const Running& last : running) finish(last);
  for (const auto& [call, ways] : ends) {
    std::printf("%-18s", call.c_str());
    for (const auto& [way, times] : ways) std::printf("  %s %d", way.c_str(), times);
    std::printf("\n");
  }
  std::printf("%llu hosts from seed %llu, %d broke a rule\n", static_cast<unsigned long long>(count),
              static_cast<unsigned long long>(seed), broken);
  return broken == 0 ? 0 : 1;
}
