// faults-failing-calls [SHARE [CALL]]: a guarded exercise on virtual time, over pseudo-terminals, in which
// one call of the system fails: each call in turn, in each plausible way; of those that come often every
// SHARE-th. CALL alone when one is named. Each in a process of its own: it may not end by itself or hang, the
// machine stands at the end and whenever the guard stops it, the exercise gets through all the same, no
// descriptor is left open, the journal is whole or reported broken, and another exercise, in the same
// process, is as if nothing had been. Where the runtime cannot go on without a call, the process may stop
// with a word; and where memory runs out. Prints what came of the calls, and what went wrong; ends with 1
// when something did.

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "simulators/devices/simulatedDevices.hpp"
#include "simulators/lines/PseudoTerminalLine.hpp"
#include "simulators/physics/Patient.hpp"
#include "tarsil/guard/Journal.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tarsil/support/process.hpp"
#include "tests/faults/FailingCalls.hpp"
#include "tests/faults/Walk.hpp"
#include "tests/helpers/TemporaryUserFolders.hpp"
#include "tests/helpers/plugInAdapter.hpp"

using namespace tarsil;
using namespace std::chrono_literals;

namespace {

namespace fs = std::filesystem;

constexpr Duration roundTime = 100ms;
/// Until it should be through, whatever failed; and until it should have closed when it is asked to.
constexpr Duration patience = 60s;
/// From a protective stop until the machine is asked to stand: one repetition may be lost. Where a port does
/// not close, the station waits for it first.
constexpr Duration promised = 5s;
constexpr Duration promisedWithoutClose = 15s;
/// A call that is made no more often fails each time, whatever the share.
constexpr std::size_t fewTimes = 40;
/// Seconds of real time, for a process that computes.
constexpr unsigned hanging = 120;

/// The machines at the other ends of the lines.
class Machines {
 public:
  Machines() {
    appear("treadmill", *treadmillLine_, treadmillPath_);
    appear("oximeter", *oximeterLine_, oximeterPath_);
  }
  ~Machines() {
    VirtualDeviceRegistry::shared()->remove(treadmillPath_);
    VirtualDeviceRegistry::shared()->remove(oximeterPath_);
  }
  Machines(const Machines&) = delete;
  Machines& operator=(const Machines&) = delete;

  /// The name of a device's port, wherever it is plugged in.
  static std::string stablePath(const std::string& device) { return "/dev/serial/by-id/" + device; }
  /// One watcher a line: processes of this test that run beside each other have different lines.
  static std::string serialNumber(const std::string& device) { return device + std::to_string(getpid()); }

  bool isAskedToMove() const {
    const auto truth = treadmill_->truth();
    return truth.isRunning && truth.asked.speed > 0;
  }
  bool moves() const { return treadmill_->truth().actual.speed > 0; }
  bool isPluggedIn() const { return isPluggedIn_; }

  void pullPlug() {
    isPluggedIn_ = false;
    treadmillLine_->hostEnd().unplug();
    VirtualDeviceRegistry::shared()->remove(treadmillPath_);
  }
  void putPlugBack() {
    treadmillLine_->hostEnd().plugIn();
    appear("treadmill", *treadmillLine_, treadmillPath_);
    isPluggedIn_ = true;
  }

 private:
  static void appear(const std::string& device, simulators::PseudoTerminalLine& line, std::string& path) {
    path = line.hostEnd().path();
    plugInAdapter(path, serialNumber(device), stablePath(device));
  }

  simulators::Patient patient_;
  std::unique_ptr<simulators::SimulatedDevice> treadmill_ =
      simulators::makeSimulatedDevice("LodeTreadmill", patient_);
  std::unique_ptr<simulators::SimulatedDevice> oximeter_ =
      simulators::makeSimulatedDevice("MEDXINGPort", patient_);
  std::unique_ptr<simulators::PseudoTerminalLine> treadmillLine_ =
      std::make_unique<simulators::PseudoTerminalLine>(*treadmill_);
  std::unique_ptr<simulators::PseudoTerminalLine> oximeterLine_ =
      std::make_unique<simulators::PseudoTerminalLine>(*oximeter_);
  std::string treadmillPath_;
  std::string oximeterPath_;
  bool isPluggedIn_ = true;
};

struct Outcome {
  std::vector<std::string> done;
  std::map<std::string, int> reports;
  std::vector<std::string> violations;
};

/// Numbers of this process's open descriptors and what they lead to, one a line.
std::string openDescriptors() {
  std::set<std::string> lines;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code closed;
    const fs::path aim = fs::read_symlink(entry.path(), closed);
    if (!closed && aim.string().find("/fd") == std::string::npos)
      lines.insert(entry.path().filename().string() + " " + aim.string());
  }
  std::string all;
  for (const std::string& line : lines) all += line + "\n";
  return all;
}

bool isWhole(const std::filesystem::path& file) {
  const auto journal = readJournal(contentsOf(file));
  return journal && !journal->isTorn && journal->unreadableLines.empty() && !journal->events.empty();
}

/// One exercise, from machines that appear to machines that are gone.
Outcome walk(VirtualTime& time, bool isWatched, const Fault* fault) {
  Outcome outcome;
  const auto demand = [&outcome](bool holds, const std::string& what) {
    if (!holds) outcome.violations.push_back(what);
  };
  const TemporaryUserFolders folders;
  time.settle();
  const std::string before = openDescriptors();
  {
    Machines machines;
    Walk walk({.exercise = Machines::stablePath("treadmill"),
               .oximeter = Machines::stablePath("oximeter"),
               .journals = folders.home(),
               .watcher = isWatched ? std::optional(std::string()) : std::nullopt,
               .heartbeat = 10s,
               .pullPlug = [&machines] { machines.pullPlug(); },
               .putPlugBack = [&machines] { machines.putPlugBack(); }});
    const bool isForGood = fault && fault->forGood;
    const Duration longest = fault && fault->call == "close" ? promisedWithoutClose : promised;
    const auto pass = [&](Duration patienceNow) {
      for (Duration passed{}; passed < patienceNow && !walk.isOver(); passed += roundTime) {
        walk.goRound();
        time.advance(roundTime);
        const auto since = walk.mustStandSince();
        if (since && !isForGood && machines.isPluggedIn() && Clock::now() - *since > longest)
          demand(!machines.isAskedToMove(), "the machine is not asked to stand");
      }
    };
    if (fault) {
      FailingCalls::arm(*fault);
    } else {
      FailingCalls::count();
    }
    pass(patience);
    demand(walk.isOver() || isForGood, "the exercise does not get through");
    walk.giveUp();
    pass(patience);
    demand(walk.isOver(), "the station does not close");
    walk.drop();
    time.advance(5s);
    // A line that nobody can open again takes no stop: that is what the watcher is for.
    demand(!machines.moves() || isForGood, "the machine moves at the end");
    FailingCalls::disarm();
    outcome.done = walk.done();
    outcome.reports = walk.reports();
    for (const std::string& what : walk.violations()) outcome.violations.push_back(what);
    if (!outcome.reports.contains("alarm: journalFailed")) {
      for (const auto& journal : walk.journals()) demand(isWhole(journal), "a journal is not whole");
    }
  }
  time.advance(1s);
  demand(openDescriptors() == before, "descriptors are left:\n" + before + "then\n" + openDescriptors());
  return outcome;
}

std::string childSays(const Outcome& outcome) {
  std::string text;
  for (const auto& [report, count] : outcome.reports)
    text += "  " + std::to_string(count) + " x " + report + "\n";
  return text;
}

struct Trial {
  Fault fault;
  bool isWatched = false;
};

struct Child {
  Trial trial;
  pid_t process = -1;
  int answer = -1;
};

/// Without a fault; without and with a watcher.
std::array<Outcome, 2> cleanOutcomes;

[[noreturn]] void beTheChild(const Trial& trial, int answer) {
  const Outcome& clean = cleanOutcomes[trial.isWatched ? 1 : 0];
  signal(SIGALRM, SIG_DFL);
  alarm(hanging);
  std::FILE* out = fdopen(answer, "w");
  dup2(answer, STDERR_FILENO);
  {
    VirtualTime time;
    const Outcome first = walk(time, trial.isWatched, &trial.fault);
    const bool hasFailed = FailingCalls::hasFailed();
    const Outcome next = walk(time, trial.isWatched, nullptr);
    const bool isAsEver = first.done == clean.done && first.reports == clean.reports;
    std::string text;
    for (const auto& what : first.violations) text += "broken " + what + "\n";
    for (const auto& what : next.violations) text += "broken in the next: " + what + "\n";
    // What was left moving is told to the next one.
    if (next.done != clean.done ||
        (next.reports != clean.reports && !first.reports.contains("alarm: notSeenToStop")))
      text += "broken the next exercise is another one:\n" + childSays(next);
    if (!hasFailed) text += "moved\n";
    if (!isAsEver) text += "reported\n";
    if (text.find("broken") != std::string::npos) text += childSays(first);
    std::fputs(text.c_str(), out);
    std::fflush(out);
  }
  _exit(0);
}

bool mayStop(const Fault& fault) {
  static const std::set<std::string> calls{"memory",        "epoll_create1",  "epoll_ctl ADD",
                                           "epoll_ctl MOD", "eventfd",        "eventfd_read",
                                           "eventfd_write", "timerfd_create", "timerfd_settime"};
  return calls.contains(fault.call);
}

/// How often each call ended in which way.
std::map<std::string, std::map<std::string, std::size_t>> ends;
std::size_t tried = 0;
std::size_t broken = 0;

std::string nameOf(const Fault& fault) {
  if (fault.error == Fault::fewer) return fault.call + ", fewer";
  return fault.call + ", " + strerrorname_np(fault.error) + (fault.forGood ? " for good" : "");
}

void judge(const Child& child) {
  std::string text;
  std::array<char, 4096> buffer{};
  for (ssize_t count = 0; (count = read(child.answer, buffer.data(), buffer.size())) > 0;)
    text.append(buffer.data(), static_cast<std::size_t>(count));
  close(child.answer);
  int status = 0;
  waitpid(child.process, &status, 0);
  ++tried;
  auto& end = ends[nameOf(child.trial.fault)];
  std::string fault;
  if (WIFSIGNALED(status)) {
    const bool said =
        child.trial.fault.call == "memory" || text.find("tarsil: fatal error: ") != std::string::npos;
    if (WTERMSIG(status) == SIGABRT && mayStop(child.trial.fault) && said) {
      ++end["stopped"];
      return;
    }
    fault = std::string("ended by ") + strsignal(WTERMSIG(status));
  } else if (text.find("broken") != std::string::npos) {
    fault = "breaks a rule";
  }
  if (!fault.empty()) {
    ++broken;
    ++end["BROKEN"];
    std::printf("%s: %s\n%s", tarsil::text(child.trial.fault).c_str(), fault.c_str(), text.c_str());
    std::fflush(stdout);
    return;
  }
  if (text.find("moved") != std::string::npos) ++end["not met"];
  ++end[text.find("reported") != std::string::npos ? "reported" : "as ever"];
}

Child begin(const Trial& trial) {
  std::array<int, 2> ends2{};
  if (pipe(ends2.data()) != 0) std::abort();
  Child child;
  child.trial = trial;
  child.process = fork();
  if (child.process == 0) {
    close(ends2[0]);
    beTheChild(trial, ends2[1]);
  }
  close(ends2[1]);
  child.answer = ends2[0];
  return child;
}

/// What an exercise without a fault is like.
struct Clean {
  Outcome outcome;
  /// How often each call is made.
  std::map<std::string, std::size_t> counts;

  bool isFine() const { return outcome.violations.empty() && outcome.done.size() == 5; }
};

Clean walkClean(bool isWatched) {
  VirtualTime time;
  walk(time, isWatched, nullptr);  // what is made once in a process is there from now on
  Clean clean;
  clean.outcome = walk(time, isWatched, nullptr);
  const auto calls = FailingCalls::made();
  for (const std::string& call : calls) ++clean.counts[call];
  clean.counts["memory"] = FailingCalls::allocated();
  for (const auto& what : clean.outcome.violations) std::printf("clean: %s\n", what.c_str());
  std::printf("%s: %zu calls, %zu allocations in an exercise without a fault\n",
              isWatched ? "with a watcher" : "without a watcher", calls.size(), clean.counts["memory"]);
  return clean;
}

std::vector<Fault> faultsOf(const std::string& call, std::size_t count) {
  std::vector<Fault> faults;
  for (const int error : FailingCalls::faultsOf(call)) {
    for (std::size_t number = 0; number < count; ++number) {
      faults.push_back({.call = call, .number = number, .error = error});
      if (error == EMFILE)
        faults.push_back({.call = call, .number = number, .error = error, .forGood = true});
    }
  }
  return faults;
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t share = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1;
  const std::string only = argc > 2 ? argv[2] : "";
  const rlimit noCore{};
  setrlimit(RLIMIT_CORE, &noCore);
  signal(SIGPIPE, SIG_IGN);
  exchangeProcessHooks({.print = [](std::string_view, PrintedText) {}});

  SerialDeviceRegistry::exchangeShared(VirtualDeviceRegistry::shared());
  const Clean bare = walkClean(false);
  const Clean watched = walkClean(true);
  cleanOutcomes = {bare.outcome, watched.outcome};
  if (!bare.isFine() || !watched.isFine()) return 1;

  std::vector<Trial> trials;
  std::size_t possible = 0;
  for (const auto& [call, count] : watched.counts) {
    if (!only.empty() && call != only) continue;
    const auto made = bare.counts.find(call);
    const bool isWatchers = made == bare.counts.end() || (count <= fewTimes && made->second != count);
    const auto all = faultsOf(call, isWatchers ? count : made->second);
    const std::size_t stride = count > fewTimes ? share : 1;
    possible += all.size();
    for (std::size_t i = 0; i < all.size(); i += stride)
      trials.push_back({.fault = all[i], .isWatched = isWatchers});
    if (all.empty()) std::printf("never failed: %s, %zu times\n", call.c_str(), count);
  }

  const unsigned atOnce = std::max(std::thread::hardware_concurrency(), 1U);
  std::vector<Child> children;
  for (const Trial& trial : trials) {
    if (children.size() == atOnce) {
      judge(children.front());
      children.erase(children.begin());
    }
    children.push_back(begin(trial));
  }
  for (const Child& child : children) judge(child);

  for (const auto& [call, ways] : ends) {
    std::printf("%-28s", call.c_str());
    for (const auto& [way, count] : ways) std::printf("  %s %zu", way.c_str(), count);
    std::printf("\n");
  }
  std::printf("%zu of %zu faults tried, %zu broke a rule\n", tried, possible, broken);
  return broken == 0 ? 0 : 1;
}
