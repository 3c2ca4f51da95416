// A host of the guarded station with a loop of its own and no window: a minute's walk on a treadmill. Return
// on the keyboard, or an interrupt, ends it sooner.

#include <poll.h>
#include <sys/signalfd.h>
#include <tarsil/guard/GuardedStation.hpp>
#include <tarsil/guard/eventText.hpp>
#include <tarsil/platform/VirtualDeviceRegistry.hpp>
#include <tarsil/runtime/RunLoop.hpp>

#include <array>
#include <csignal>
#include <cstdio>

using namespace std::chrono_literals;
using namespace tarsil;

namespace {

constexpr int beatEvery = 100;  // ms, well below the station's heartbeat

/// Signals as something to wait for, like the keyboard.
int interruptions() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signalfd(-1, &signals, SFD_CLOEXEC);
}

void show(const Event& event) {
  const EventText text = textOf(event, StressDeviceType::Treadmill);
  if (text.kind == EventKind::traffic) return;
  std::printf("%s: %s\n", roleOf(event.source), text.text.c_str());
  std::fflush(stdout);
}

/// Starts as soon as the station allows it, walks for a minute, and closes the station.
class Walk {
 public:
  explicit Walk(GuardedStation& station) : station_(station) {}

  void goOn() {
    if (endsAt_ == never && station_.readiness().isAccepted()) begin();
    if (Clock::now() > endsAt_) end();
  }
  void end() {
    if (!isOver_) station_.close();
    isOver_ = true;
  }

 private:
  void begin() {
    if (!station_.start().isAccepted()) return;
    endsAt_ = Clock::now() + 1min;
    // What the station refuses becomes an event.
    static_cast<void>(station_.setLoad({.speed = 2.7F, .grade = 10}));
  }

  GuardedStation& station_;
  static constexpr Clock::Instant never = Clock::Instant::max();
  Clock::Instant endsAt_ = never;
  bool isOver_ = false;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s /dev/ttyUSB0\n", argv[0]);
    return 2;
  }
  const int interrupted = interruptions();
  // A real adapter is found by itself; this makes any terminal a port.
  VirtualDeviceRegistry::shared()->add(argv[1], "treadmill");

  const auto opened = GuardedStation::open({.exercise = {"LodeTreadmill", "treadmill"}});
  if (!opened) {
    std::fprintf(stderr, "%s\n", opened.answer().reason().c_str());
    return 1;
  }
  const auto station = opened.station();
  station->onEvent(show);
  Walk walk(*station);
  std::array due{pollfd{.fd = RunLoop::main().descriptor(), .events = POLLIN, .revents = 0},
                 pollfd{.fd = interrupted, .events = POLLIN, .revents = 0},
                 pollfd{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0}};
  while (!station->isClosed()) {
    poll(due.data(), due.size(), beatEvery);
    station->alive();
    RunLoop::main().processDue();
    walk.goOn();
    if ((due[1].revents | due[2].revents) == 0) continue;
    walk.end();
    due[1].fd = due[2].fd = -1;  // asked once
  }
}
