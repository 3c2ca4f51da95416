// killed-hosts HOST COUNT [SEED]: lets COUNT hosts fail at random moments, in every way there is, and looks
// on as the treadmill at the other end of the line. Prints how long the first byte of the stop took, and what
// went wrong; ends with 1 when something did.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tarsil/guard/watch/lastWatch.hpp"
#include "tarsil/support/FileDescriptor.hpp"
#include "tests/guard-watch/WatchedLine.hpp"
#include "tests/guard-watch/trials/trial.hpp"

using namespace tarsil;
using namespace std::chrono_literals;
using tarsil::FileDescriptor;
using trial::Fault;

namespace {

constexpr Duration promised = 1s;
constexpr int hostsAtOnce = 8;
/// A host that is late by itself, on a busy machine, is stopped rightly, and its trial made again.
constexpr int attempts = 5;

const std::vector<Fault> faults{
    {.name = "SIGKILL", .order = 0, .signal = SIGKILL},
    {.name = "SIGSTOP", .order = 0, .signal = SIGSTOP},
    {.name = "SIGTERM", .order = 0, .signal = SIGTERM},
    {.name = "SIGSEGV", .order = 0, .signal = SIGSEGV},
    {.name = "abort", .order = trial::orderedAbort},
    {.name = "stack overflow", .order = trial::orderedStackOverflow},
    {.name = "exhausted memory", .order = trial::orderedExhaustion},
    {.name = "endless loop", .order = trial::orderedEndlessLoop},
    {.name = "exit without a word", .order = trial::orderedExit},
    {.name = "another program", .order = trial::orderedOtherProgram},
    {.name = "process group killed", .order = 0, .signal = SIGKILL, .hitsGroup = true},
    {.name = "process group stopped", .order = 0, .signal = SIGSTOP, .hitsGroup = true},
};

Duration now() {
  timespec time{};
  clock_gettime(CLOCK_BOOTTIME, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

struct Failed {
  std::string what;
};

void demand(bool isTrue, const std::string& what) {
  if (!isTrue) throw Failed{what};
}

/// failing-host as a process with a process group of its own.
class Host {
 public:
  Host(const std::string& program, const std::string& terminal, const std::string& line,
       const std::string& records) {
    std::array<int, 2> orders{};
    std::array<int, 2> beats{};
    demand(pipe2(orders.data(), O_CLOEXEC) == 0 && pipe2(beats.data(), O_CLOEXEC) == 0, "no pipes");
    orders_ = FileDescriptor(orders[1]);
    beats_ = FileDescriptor(beats[0]);
    const FileDescriptor itsOrders(orders[0]);
    const FileDescriptor itsBeats(beats[1]);
    fcntl(beats_.get(), F_SETFL, O_NONBLOCK);

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, itsOrders.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&files, itsBeats.get(), STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, (records + "/stderr").c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0600);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    std::vector<std::string> words{program, terminal, line, records};
    std::vector<char*> arguments;
    for (auto& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const int error = posix_spawn(&pid_, program.c_str(), &files, &attributes, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    demand(error == 0, "no host");
  }
  ~Host() {
    kill(-pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  pid_t pid() const { return pid_; }
  /// The time of the last heartbeat after which its watcher still watched.
  Duration lastBeat() {
    std::int64_t number = 0;
    while (::read(beats_.get(), &number, sizeof number) == sizeof number) {
      if (number == trial::tookOver) {
        knowsOfTakeOver_ = true;
      } else {
        beat_ = Duration(number);
      }
    }
    return beat_;
  }
  /// Once it has ended.
  bool knowsOfTakeOver() {
    lastBeat();
    return knowsOfTakeOver_;
  }
  void waitForBeat() {
    pollfd beats{.fd = beats_.get(), .events = POLLIN, .revents = 0};
    demand(poll(&beats, 1, 60'000) == 1 && lastBeat() > Duration::zero(), "the host did not begin");
  }
  void waitForEnd() {
    pollfd end{.fd = beats_.get(), .events = 0, .revents = 0};
    demand(poll(&end, 1, 10'000) == 1, "the host did not end");
  }
  void suffer(const Fault& fault) const {
    if (fault.signal != 0) {
      kill(fault.hitsGroup ? -pid_ : pid_, fault.signal);
    } else {
      demand(write(orders_.get(), &fault.order, 1) == 1, "the host did not wait for its fault");
    }
  }
  void goOn() const { kill(-pid_, SIGCONT); }

 private:
  pid_t pid_ = -1;
  FileDescriptor orders_;
  FileDescriptor beats_;
  Duration beat_ = Duration::zero();
  bool knowsOfTakeOver_ = false;
};

struct Times {
  Duration fromBeat;
  Duration fromFault;
};

Bytes wholeStop() {
  Bytes all;
  for (const auto& step : trial::stop()) {
    for (int count = 0; count < step.times; ++count)
      all.insert(all.end(), step.bytes.begin(), step.bytes.end());
  }
  return all;
}

std::uint32_t stopsOfThePlan() {
  std::uint32_t count = 0;
  for (const auto& step : trial::stop()) count += static_cast<std::uint32_t>(step.times);
  return count;
}

bool isFrozen(const Fault& fault) {
  return fault.signal == SIGSTOP || fault.order == trial::orderedEndlessLoop;
}

/// The watcher's own account must be what was seen.
void checkReport(const std::string& line, const std::string& records, const Fault& fault, pid_t host) {
  const auto report = lastWatch(line, records);
  demand(report.has_value(), "the watcher left no record");
  demand(report->outcome == WatchReport::Outcome::stopSent, "the record does not say that the stop was sent");
  demand(report->host == host, "the record names another host");
  demand(report->stopsSent == stopsOfThePlan() && report->stopsFailed == 0, "the record counts other stops");
  const auto cause = isFrozen(fault) ? WatchReport::Cause::hostSilent : WatchReport::Cause::hostGone;
  // A death that takes as long as a heartbeat is noticed as silence.
  demand(report->cause == cause || report->cause == WatchReport::Cause::hostSilent,
         "the record names another cause");
  demand(report->lastBeatAt <= report->firstStopAt && report->firstStopAt <= report->lastStopAt &&
             report->lastStopAt <= report->endedAt,
         "the record's times are not in order");
}

/// None when the host was late by itself.
std::optional<Times> fail(const std::string& program, const std::string& line, const std::string& records,
                          const Fault& fault, Duration moment) {
  WatchedLine treadmill;
  Host host(program, treadmill.path(), line, records);
  host.waitForBeat();

  const bool wasStoppedBefore = treadmill.waitForBytes(moment);
  const Duration failedAt = now();
  if (wasStoppedBefore) {
    demand(failedAt - host.lastBeat() >= trial::heartbeat, "a stop was sent although the host was alive");
    return std::nullopt;
  }
  host.suffer(fault);

  demand(treadmill.waitForBytes(20s), "no stop came");
  const Duration stoppedAt = now();
  const speed_t speed = treadmill.speed();
  const Bytes stop = treadmill.read(wholeStop().size());
  const Duration beat = host.lastBeat();
  demand(stop == wholeStop(), "what came is not the stop");
  demand(speed == B4800, "the stop came at another speed");
  demand(stoppedAt - beat <= trial::heartbeat + promised, "the stop came late");

  if (fault.signal == SIGSTOP) {
    host.goOn();
    host.waitForEnd();
    demand(host.knowsOfTakeOver(), "the host that came back was not told");
  }
  if (fault.order == trial::orderedEndlessLoop) kill(host.pid(), SIGKILL);
  demand(treadmill.readToTheEnd().empty(), "more than the stop came");
  demand(treadmill.isLetGo(), "somebody still holds the line");
  checkReport(line, records, fault, host.pid());
  return Times{stoppedAt - beat, stoppedAt - failedAt};
}

double milliseconds(Duration duration) {
  return std::chrono::duration<double, std::milli>(duration).count();
}

Duration median(std::vector<Duration>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void printRow(const std::string& name, std::vector<Duration> fromBeat, std::vector<Duration> fromFault) {
  if (fromBeat.empty()) return;
  std::printf(
      "%-22s %6zu %10.1f %10.1f %12.1f %10.1f\n", name.c_str(), fromBeat.size(),
      milliseconds(median(fromBeat)), milliseconds(*std::max_element(fromBeat.begin(), fromBeat.end())),
      milliseconds(median(fromFault)), milliseconds(*std::max_element(fromFault.begin(), fromFault.end())));
}

/// All the trials, several at once.
class Trials {
 public:
  Trials(std::string program, std::size_t count, unsigned seed)
      : program_(std::move(program)), count_(count), seed_(seed) {
    std::string folder = std::filesystem::temp_directory_path() / "killed-hosts-XXXXXX";
    demand(mkdtemp(folder.data()) != nullptr, "no folder for records");
    records_ = folder;
  }
  ~Trials() {
    std::error_code error;
    std::filesystem::remove_all(records_, error);
  }
  Trials(const Trials&) = delete;
  Trials& operator=(const Trials&) = delete;

  void run() {
    std::vector<std::thread> lookers;
    for (int count = 0; count < hostsAtOnce; ++count) {
      lookers.emplace_back([this] {
        for (std::size_t index; (index = next_++) < count_;) runOne(index);
      });
    }
    for (auto& looker : lookers) looker.join();
  }

  /// False when something went wrong, or too little was tried.
  bool print() {
    std::printf("%zu hosts, heartbeat %.0f ms, seed %u, %zu at once; times in ms\n", count_,
                milliseconds(trial::heartbeat), seed_, std::size_t{hostsAtOnce});
    std::printf("%-22s %6s %21s %23s\n", "", "", "from the last beat", "from the fault");
    std::printf("%-22s %6s %10s %10s %12s %10s\n", "fault", "hosts", "median", "worst", "median", "worst");
    std::vector<Duration> fromBeat;
    std::vector<Duration> fromFault;
    for (std::size_t index = 0; index < faults.size(); ++index) {
      printRow(std::string(faults[index].name), beats_[index], faults_[index]);
      fromBeat.insert(fromBeat.end(), beats_[index].begin(), beats_[index].end());
      fromFault.insert(fromFault.end(), faults_[index].begin(), faults_[index].end());
    }
    printRow("all", fromBeat, fromFault);
    if (late_ > 0)
      std::printf("%zu hosts were late by themselves, stopped for it, and tried again\n", late_.load());
    for (const auto& failure : failures_) std::printf("FAILED: %s\n", failure.c_str());
    return failures_.empty() && fromBeat.size() == count_;
  }

 private:
  void runOne(std::size_t index) {
    const std::size_t kind = index % faults.size();
    const std::string line = "trial " + std::to_string(getpid()) + " " + std::to_string(index);
    std::mt19937 random(seed_ + static_cast<unsigned>(index));
    const Duration moment = std::chrono::microseconds(std::uniform_int_distribution(0, 400'000)(random));
    try {
      std::optional<Times> times;
      for (int attempt = 0; attempt < attempts && !times; ++attempt) {
        times = fail(program_, line, records_, faults[kind], moment);
        if (!times) ++late_;
      }
      demand(times.has_value(), "the host was late by itself each time");
      const std::lock_guard lock(mutex_);
      beats_[kind].push_back(times->fromBeat);
      faults_[kind].push_back(times->fromFault);
    } catch (const Failed& failure) {
      const std::lock_guard lock(mutex_);
      failures_.push_back(std::string(faults[kind].name) + ", trial " + std::to_string(index) + ": " +
                          failure.what);
    }
  }

  const std::string program_;
  const std::size_t count_;
  const unsigned seed_;
  std::string records_;
  std::atomic<std::size_t> next_ = 0;
  std::atomic<std::size_t> late_ = 0;
  std::mutex mutex_;
  std::vector<std::vector<Duration>> beats_ = std::vector<std::vector<Duration>>(faults.size());
  std::vector<std::vector<Duration>> faults_ = std::vector<std::vector<Duration>>(faults.size());
  std::vector<std::string> failures_;
};

}  // namespace

int main(int argc, char** argv) {
  const int count = argc > 2 ? std::atoi(argv[2]) : 0;
  if (count <= 0 || argc > 4) {
    std::fprintf(stderr, "usage: killed-hosts HOST COUNT [SEED]\n");
    return 2;
  }
  const unsigned seed =
      argc > 3 ? static_cast<unsigned>(std::strtoul(argv[3], nullptr, 10)) : std::random_device{}();
  Trials trials(argv[1], static_cast<std::size_t>(count), seed);
  trials.run();
  return trials.print() ? 0 : 1;
}
