#include "tarsil/guard/watch/Watcher.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <new>
#include <system_error>
#include <utility>

#include "tarsil/guard/watch/detail/WatchPage.hpp"
#include "tarsil/guard/watch/detail/watchNames.hpp"
#include "tarsil/guard/watch/detail/watcherProgram.hpp"
#include "tarsil/support/FileDescriptor.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using detail::Belt;
using detail::StopPlan;
using detail::StopStep;
using detail::WatchPage;
using detail::WatchRecord;

constexpr Duration shortestHeartbeat = 50ms;
constexpr Duration longestHeartbeat = 1min;
constexpr Duration shortestPause = 10ms;
constexpr Duration longestPause = 1min;
constexpr int mostTimes = 10'000;
constexpr Duration patienceAtStart = 5s;
constexpr Duration patienceAtEnd = 1s;
/// A watcher looks at least once a heartbeat; a busy machine may make it this much later.
constexpr Duration slack = 1s;

/// Also counts while the machine sleeps: a host that slept did not watch the belt.
std::int64_t now() {
  timespec time{};
  clock_gettime(CLOCK_BOOTTIME, &time);
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

constexpr int milliseconds(Duration duration) {
  return static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(duration).count());
}

/// Why there is no watcher: a sentence without its full stop.
struct Failure {
  std::string reason;
};

[[noreturn]] void fail(const std::string& what) {
  throw Failure{what + ": " + std::generic_category().message(errno)};
}

FileDescriptor made(int descriptor, const std::string& what) {
  if (descriptor < 0) fail(what);
  return FileDescriptor(descriptor);
}

// ---- the plan

bool isBetween(Duration value, Duration lowest, Duration highest) {
  return value >= lowest && value <= highest;
}

std::string whatIsWrongWith(const Watcher::Step& step) {
  if (step.bytes.empty() || step.bytes.size() > StopStep::capacity)
    return "a part of the stop has 1 to 112 bytes";
  if (!isBetween(step.every, shortestPause, longestPause))
    return "the pauses of a stop last 10 ms to a minute";
  if (step.times < 1 || step.times > mostTimes) return "a part of the stop is sent 1 to 10000 times";
  return {};
}

std::string whatIsWrongWith(const Watcher::Plan& plan) {
  if (plan.line.empty()) return "the line of the watcher has no name";
  if (plan.stop.empty() || plan.stop.size() > StopPlan::capacity) return "a stop has 1 to 8 parts";
  if (!isBetween(plan.heartbeat, shortestHeartbeat, longestHeartbeat)) {
    return "the heartbeat of a watcher is 50 ms to a minute";
  }
  for (const auto& step : plan.stop) {
    if (auto wrong = whatIsWrongWith(step); !wrong.empty()) return wrong;
  }
  return {};
}

StopPlan stopPlanOf(const Watcher::Plan& plan) {
  StopPlan stop;
  stop.heartbeat = plan.heartbeat.count();
  for (const auto& step : plan.stop) {
    StopStep& copy = stop.steps[stop.stepCount++];
    copy.every = step.every.count();
    copy.times = static_cast<std::uint32_t>(step.times);
    copy.length = static_cast<std::uint32_t>(step.bytes.size());
    std::copy(step.bytes.begin(), step.bytes.end(), copy.bytes);
  }
  return stop;
}

WatchRecord firstRecord() {
  WatchRecord record;
  record.host = getpid();
  record.startedAt =
      std::chrono::duration_cast<Duration>(std::chrono::system_clock::now().time_since_epoch()).count();
  return record;
}

// ---- what the watcher inherits

FileDescriptor makePage() {
  FileDescriptor page =
      made(memfd_create("tarsil-watch", MFD_CLOEXEC | MFD_ALLOW_SEALING), "no memory to share");
  if (ftruncate(page.get(), sizeof(WatchPage)) != 0) fail("no memory to share");
  // A page that somebody shortens would kill whoever looks at it.
  fcntl(page.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL);
  return page;
}

WatchPage* mapPage(const FileDescriptor& page) {
  void* memory = mmap(nullptr, sizeof(WatchPage), PROT_READ | PROT_WRITE, MAP_SHARED, page.get(), 0);
  if (memory == MAP_FAILED) fail("no memory to share");
  return new (memory) WatchPage;
}

/// Only opened: the record of the watcher before stays until the new one watches.
FileDescriptor openRecord(const std::string& path) {
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  std::error_code error;
  if (std::filesystem::create_directories(folder, error)) {
    std::filesystem::permissions(folder, std::filesystem::perms::owner_all, error);
  }
  return made(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600),
              "no record of the watcher in " + folder.string());
}

FileDescriptor makeMail(const std::string& line) {
  FileDescriptor mail = made(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0), "no socket for the watcher");
  constexpr int on = 1;
  setsockopt(mail.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof on);
  const detail::MailAddress address(line);
  // A watcher that has just let go of the line takes another moment to end.
  const auto end = std::chrono::steady_clock::now() + patienceAtEnd;
  while (bind(mail.get(), address.get(), address.length()) != 0) {
    if (errno != EADDRINUSE) fail("no socket for the watcher");
    if (std::chrono::steady_clock::now() > end) throw Failure{"another watcher still watches over " + line};
    poll(nullptr, 0, 5);
  }
  return mail;
}

std::pair<FileDescriptor, FileDescriptor> makeBell() {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) fail("no socket for the watcher");
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

// ---- the process

/// What a new process is to be like, besides its program.
class Surroundings {
 public:
  Surroundings() {
    posix_spawn_file_actions_init(&files_);
    posix_spawnattr_init(&attributes_);
    // No signal reaches it before it can see to that by itself.
    sigset_t all;
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes_, &all);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK);
    for (int stream = 0; stream <= STDERR_FILENO; ++stream) {
      posix_spawn_file_actions_addopen(&files_, stream, "/dev/null", O_RDWR, 0);
    }
  }
  ~Surroundings() {
    posix_spawn_file_actions_destroy(&files_);
    posix_spawnattr_destroy(&attributes_);
  }
  Surroundings(const Surroundings&) = delete;
  Surroundings& operator=(const Surroundings&) = delete;

  void inherit(int descriptor, int asNumber) {
    // Out of the way of the numbers that others are to get.
    copies_.push_back(
        made(fcntl(descriptor, F_DUPFD_CLOEXEC, detail::firstUnused), "no descriptor for the watcher"));
    posix_spawn_file_actions_adddup2(&files_, copies_.back().get(), asNumber);
  }

  pid_t spawn(const std::string& program) {
    std::string name = "tarsil-watcher";
    std::array<char*, 2> arguments{name.data(), nullptr};
    // Nothing of the host's environment concerns it.
    std::array<char*, 1> environment{nullptr};
    pid_t process = -1;
    errno =
        posix_spawn(&process, program.c_str(), &files_, &attributes_, arguments.data(), environment.data());
    if (errno != 0) fail(program);
    return process;
  }

 private:
  posix_spawn_file_actions_t files_{};
  posix_spawnattr_t attributes_{};
  std::vector<FileDescriptor> copies_;
};

/// Waits for one of these events, or the other end's end. False when the time is over.
bool waitFor(const FileDescriptor& bell, short events, Duration timeout) {
  pollfd end{.fd = bell.get(), .events = events, .revents = 0};
  int answers = 0;
  do {
    answers = poll(&end, 1, milliseconds(timeout));
  } while (answers < 0 && errno == EINTR);
  return answers == 1;
}

/// True when the watcher has said that it watches.
bool hearsIt(const FileDescriptor& bell) {
  char byte = 0;
  return waitFor(bell, POLLIN, patienceAtStart) && recv(bell.get(), &byte, 1, MSG_DONTWAIT) == 1;
}

/// The process that was spawned ends as soon as the watcher proper, its child, runs on its own.
int statusOf(pid_t spawned) {
  int status = 0;
  while (waitpid(spawned, &status, 0) < 0) {
    if (errno != EINTR) return 0;  // a host that ignores SIGCHLD
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string whyItEnded(int status) {
  switch (status) {
    case detail::cannotShare:
      return "the watcher program is of another version";
    case detail::isNoTerminal:
      return "the line to watch over is no terminal";
    case detail::cannotRecord:
      return "the watcher's record cannot be written";
    case detail::cannotDetach:
      return "the watcher could not leave its parent";
    default:
      return "the watcher did not begin";
  }
}

}  // namespace

struct Watcher::Shared {
  explicit Shared(const Plan& plan)
      : heartbeat(plan.heartbeat), descriptor(makePage()), page(mapPage(descriptor)) {
    page->plan = stopPlanOf(plan);
    page->record = firstRecord();
    page->lastBeat = now();
  }
  ~Shared() { munmap(page, sizeof(WatchPage)); }
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;

  const Duration heartbeat;
  FileDescriptor descriptor;
  WatchPage* const page;
  /// Ends with us, which tells the watcher.
  FileDescriptor bell;
};

Watcher::Start Watcher::start(int line, const Plan& plan) try {
  if (auto wrong = whatIsWrongWith(plan); !wrong.empty()) throw Failure{wrong};
  // The kernel kills everybody in a container together with its first process.
  if (getpid() == 1) throw Failure{"as process 1 of a container this program would take its watcher with it"};
  const std::string program = plan.program.empty() ? detail::watcherProgram() : plan.program;
  if (program.empty()) throw Failure{"the program tarsil-watcher is not installed"};

  auto shared = std::make_unique<Shared>(plan);
  auto [ours, its] = makeBell();
  shared->bell = std::move(ours);
  // Before the record: while a watcher of this line still runs, the record is its own.
  const FileDescriptor mail = makeMail(plan.line);
  const FileDescriptor record = openRecord(detail::recordPath(plan.line, plan.records));

  pid_t spawned = -1;
  {
    Surroundings surroundings;
    surroundings.inherit(line, detail::watchedLine);
    surroundings.inherit(shared->descriptor.get(), detail::sharedPage);
    surroundings.inherit(its.get(), detail::bell);
    surroundings.inherit(mail.get(), detail::mail);
    surroundings.inherit(record.get(), detail::recordFile);
    spawned = surroundings.spawn(program);
  }
  its = FileDescriptor();

  if (!hearsIt(shared->bell)) {
    // Should it come to life yet, it has nothing to do.
    shared->page->belt = Belt::disarmed;
    if (waitpid(spawned, nullptr, WNOHANG | WNOWAIT) == 0) kill(spawned, SIGKILL);
    throw Failure{whyItEnded(statusOf(spawned))};
  }
  statusOf(spawned);
  shared->page->lastBeat = now();
  return {.answer = Answer::accepted(), .watcher = std::unique_ptr<Watcher>(new Watcher(std::move(shared)))};
} catch (const Failure& failure) {
  return {.answer = Answer::refused(Answer::Code::noWatcher, failure.reason), .watcher = nullptr};
}

Watcher::Watcher(std::unique_ptr<Shared> shared) : shared_(std::move(shared)) {}

Watcher::~Watcher() = default;

Watcher::State Watcher::alive() noexcept {
  const std::int64_t present = now();
  // A machine that slept may let us run before the watcher.
  if (present - shared_->page->lastBeat >= shared_->heartbeat.count()) return stopNow();
  shared_->page->lastBeat = present;
  return state();
}

Watcher::State Watcher::state() const noexcept {
  switch (shared_->page->belt.load()) {
    case Belt::disarmed:
      return State::disarmed;
    case Belt::hosts:
      return isLost() ? State::lost : State::watching;
    case Belt::watchers:
    case Belt::nobodys:
      break;
  }
  return State::tookOver;
}

bool Watcher::isLost() const noexcept {
  if (now() - shared_->page->watcherBeat > (shared_->heartbeat + slack).count()) return true;
  pollfd end{.fd = shared_->bell.get(), .events = 0, .revents = 0};
  return poll(&end, 1, 0) == 1 && (end.revents & POLLHUP) != 0;
}

void Watcher::ring() const noexcept {
  send(shared_->bell.get(), "", 1, MSG_DONTWAIT | MSG_NOSIGNAL);
}

Watcher::State Watcher::stopNow() noexcept {
  auto was = Belt::hosts;
  shared_->page->belt.compare_exchange_strong(was, Belt::watchers);
  ring();
  return state();
}

Watcher::State Watcher::disarm() {
  auto was = Belt::hosts;
  const bool isOurs = shared_->page->belt.compare_exchange_strong(was, Belt::disarmed);
  shared_->page->isDismissed = 1;
  ring();
  // It lets go of the line before it ends.
  if (!waitFor(shared_->bell, 0, patienceAtEnd)) return State::lost;
  return isOurs || was == Belt::disarmed ? State::disarmed : State::tookOver;
}

}  // namespace tarsil
