// faults-long-day [HOURS]: a station that stays open for a day of virtual time, with a treadmill, a monitor
// and an oximeter behind USB adapters, and an exercise of twenty minutes every half an hour; every fourth
// loses its cable for a while. Prints what the process held after each tenth, and ends with 1 when it holds
// more at the end than after the first one, or when something that should have happened did not.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <ratio>
#include <string>

#include "tests/faults/ProcessSize.hpp"
#include "tests/guard/GuardedSession.hpp"

using namespace tarsil;
using namespace std::chrono_literals;

namespace {

constexpr Duration exerciseTime = 20min;
constexpr Duration pause = 10min;
constexpr Duration stageTime = 3min;
/// What the process may hold more at the end than after the first tenth: the lines that the library prints,
/// which the session keeps for its tests, some 3 kB an hour. The resident set has holes, and the simulated
/// machine's memories.
constexpr std::size_t mostHeapGrowth = 128 * 1024;
constexpr std::size_t mostResidentGrowth = 2 * 1024 * 1024;

int faults = 0;

void demand(bool holds, const std::string& what) {
  if (holds) return;
  ++faults;
  std::printf("FAULT: %s\n", what.c_str());
}

class LongDay {
 public:
  LongDay() : session_({.monitor = true, .oximeter = true}) { session_.run(10s); }

  void exercise(bool losesCable) {
    const Duration began = passed_;
    session_.begin({.speed = 3, .grade = 2});
    pass(6s);
    for (float speed = 3; passed_ - began < exerciseTime; speed = speed < 8 ? speed + 1 : 3) {
      demand(session_->setLoad({.speed = speed, .grade = 2 * speed}).isAccepted(), "a load is refused");
      demand(session_->measurePressure().isAccepted(), "a measurement is refused");
      pass(stageTime);
      demand(session_.count<PressureMeasured>() == 1, "a stage without one pressure");
      demand(session_.truth().speed == speed, "the belt does not go as it was told");
      demand(session_.count<SaturationMeasured>() >= 170, "an oximeter that is not heard");
      session_.forgetEvents();
    }
    if (losesCable) loseCable();
    static_cast<void>(session_->stop());
    pass(pause);
    demand(session_.truth().speed == 0, "the belt moves after the stop");
    demand(session_->alarms().empty(), "an alarm stays on");
    session_.forgetEvents();
  }

  Duration passed() const { return passed_; }

  /// Without what the simulated machine remembers of itself.
  ProcessSize size() {
    ProcessSize size = ProcessSize::now();
    size.heap -= session_.device().history().capacity() * sizeof(simulators::TruthAt);
    return size;
  }

 private:
  void pass(Duration duration) {
    session_.run(duration);
    passed_ += duration;
  }

  void loseCable() {
    session_.line().unplug();
    pass(5s);
    session_.line().plugIn("exercise" + std::to_string(++plugs_));
    pass(30s);
    demand(session_.count<ProtectiveStop>() == 1, "a lost cable without one protective stop");
    demand(session_.count<LineVanished>() == 1, "a lost cable that is not told once");
    demand(session_.count<LineReturned>() == 1, "a cable that came back and is not told once");
    demand(session_->reset().isAccepted(), "the reset is refused");
  }

  GuardedSession session_;
  Duration passed_{};
  int plugs_ = 0;
};

void print(double hours, const ProcessSize& size) {
  std::printf("%6.1f %12zu %12zu %6zu %6zu %10.2f\n", hours, size.resident, size.heap, size.descriptors,
              size.threads, std::chrono::duration<double>(size.used).count());
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  const auto day = std::chrono::hours(argc > 1 ? std::atoi(argv[1]) : 24);
  LongDay station;
  std::printf("%6s %12s %12s %6s %6s %10s\n", "hours", "resident", "in use", "files", "tasks", "processor s");
  std::optional<ProcessSize> early;
  ProcessSize late;
  int exercises = 0;
  for (Duration next = day / 10; station.passed() < day;) {
    station.exercise(++exercises % 4 == 0);
    if (station.passed() < next && station.passed() < day) continue;
    next += day / 10;
    late = station.size();
    if (!early) early = late;
    print(std::chrono::duration<double, std::ratio<3600>>(station.passed()).count(), late);
  }
  demand(late.heap <= early->heap + mostHeapGrowth, "memory grows");
  demand(late.resident <= early->resident + mostResidentGrowth, "the resident set grows");
  demand(late.descriptors == early->descriptors, "descriptors grow");
  demand(late.threads == early->threads, "threads grow");
  std::printf("%d exercises, %d faults\n", exercises, faults);
  return faults == 0 ? 0 : 1;
}
