// faults-long-hour [MINUTES]: an hour of real time with a treadmill, a monitor and an oximeter behind USB
// adapters, in a process of their own, whose bytes travel at the lines' speeds; the oximeter fills its line.
// The host is a guarded station with its watcher and its journal, one long exercise. Prints what the process
// held after each tenth and how long the treadmill's answers took; ends with 1 when it holds more at the end
// than after the first tenth, when its answers take longer, or when the guard had anything to say.

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulators/devices/medxingFrame.hpp"
#include "simulators/devices/simulatedDevices.hpp"
#include "simulators/lines/PseudoTerminalLine.hpp"
#include "simulators/physics/Patient.hpp"
#include "tarsil/guard/GuardedStation.hpp"
#include "tarsil/guard/Journal.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/support/process.hpp"
#include "tests/faults/ProcessSize.hpp"
#include "tests/helpers/TemporaryUserFolders.hpp"

using namespace tarsil;
using namespace std::chrono_literals;

namespace {

/// What the process may hold more at the end than after the first tenth: what is in use is much the same, the
/// resident set has holes.
constexpr std::size_t mostGrowth = 32 * 1024;
constexpr std::size_t mostResidentGrowth = 1024 * 1024;
/// A worker that was busy when something came has another one at hand for some seconds.
constexpr std::size_t mostMoreThreads = 1;
/// How much longer answers may take at the end than at the beginning.
constexpr int mostSlowdown = 2;

/// Frame after frame, as fast as its line carries them.
class BusyOximeter final : public simulators::SimulatedDevice {
 public:
  explicit BusyOximeter(simulators::Patient& patient) : SimulatedDevice("MEDXINGPort", 9600, patient) {}
  std::string status() const override { return {}; }

 private:
  void onByte(std::uint8_t /*byte*/) override {}
  void onTime(Duration duration) override {
    constexpr Duration frameTime = 12 * 10 * 1000000000ns / 9600;
    for (untilNext_ -= duration; untilNext_ <= Duration::zero(); untilNext_ += frameTime)
      sendInOnePiece(simulators::medxingFrame(97));
  }
  Duration untilNext_{};
};

using Paths = std::array<std::string, 3>;

[[noreturn]] void beTheMachines(int answer) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  simulators::Patient patient;
  const auto treadmill = simulators::makeSimulatedDevice("LodeTreadmill", patient);
  const auto monitor = simulators::makeSimulatedDevice("Tango", patient);
  BusyOximeter oximeter(patient);
  simulators::PseudoTerminalLine treadmillLine(*treadmill);
  simulators::PseudoTerminalLine monitorLine(*monitor);
  simulators::PseudoTerminalLine oximeterLine(oximeter);
  std::string paths;
  for (auto* line : {&treadmillLine, &monitorLine, &oximeterLine}) paths += line->hostEnd().path() + "\n";
  if (write(answer, paths.data(), paths.size()) < 0) _exit(1);
  close(answer);
  RunLoop::main().run();
  _exit(0);
}

/// Before this process has any thread.
Paths startMachines(pid_t& process) {
  std::array<int, 2> answer{};
  if (pipe(answer.data()) != 0) std::abort();
  process = fork();
  if (process == 0) beTheMachines(answer[1]);
  close(answer[1]);
  std::FILE* lines = fdopen(answer[0], "r");
  Paths paths;
  for (std::string& path : paths) {
    for (int character = 0; (character = std::fgetc(lines)) > '\n';) path += static_cast<char>(character);
    VirtualDeviceRegistry::shared()->add(path, path);
  }
  std::fclose(lines);
  return paths;
}

class LongHour {
 public:
  explicit LongHour(const Paths& paths)
      : station_(GuardedStation::open({.exercise = {"LodeTreadmill", paths[0]},
                                       .monitor = paths[1],
                                       .oximeter = paths[2],
                                       .heartbeat = 5s})
                     .station()) {
    station_->onEvent([this](const Event& event) { hear(event); });
    pass(8s);
    demand(station_->start().isAccepted(), "the start is refused");
  }

  void pass(Duration time) {
    const auto end = Clock::now() + time;
    RunLoop::main().runUntil(
        [&] {
          station_->alive();
          return Clock::now() >= end;
        },
        time);
  }

  /// A minute of it.
  void walk(int minute) {
    demand(station_->setLoad({.speed = 2.0F + static_cast<float>(minute % 5), .grade = 3}).isAccepted(),
           "a load is refused");
    if (!station_->isMeasuringPressure())
      demand(station_->measurePressure().isAccepted(), "a measurement is refused");
    pass(1min);
  }

  void end() {
    static_cast<void>(station_->stop());
    station_->close();
    RunLoop::main().runUntil([this] { return station_->isClosed(); }, 60s);
    demand(station_->isClosed(), "the station does not close");
  }

  /// The middle one of those since the last call.
  Duration takeAnswerTime() {
    demand(!answerTimes_.empty(), "the treadmill is not heard");
    if (answerTimes_.empty()) return {};
    std::sort(answerTimes_.begin(), answerTimes_.end());
    const Duration middle = answerTimes_[answerTimes_.size() / 2];
    answerTimes_.clear();
    return middle;
  }
  std::size_t takeSaturations() { return std::exchange(saturations_, 0); }

  void demand(bool holds, const std::string& what) {
    if (holds) return;
    ++faults;
    std::printf("FAULT: %s\n", what.c_str());
  }
  int faults = 0;

 private:
  void hear(const Event& event) {
    if (const auto* asked = std::get_if<Asked>(&event.what); asked && asked->command == Command::requestLoad)
      askedAt_ = event.at;
    if (std::holds_alternative<LoadMeasured>(event.what) && askedAt_)
      answerTimes_.push_back(event.at - *std::exchange(askedAt_, std::nullopt));
    if (std::holds_alternative<SaturationMeasured>(event.what)) ++saturations_;
    const bool isTrouble =
        std::holds_alternative<AlarmRaised>(event.what) || std::holds_alternative<LineFailed>(event.what) ||
        std::holds_alternative<ProtectiveStop>(event.what) || std::holds_alternative<Refused>(event.what);
    demand(!isTrouble, journalLine(event, event.at.time_since_epoch()));
  }

  std::optional<Clock::Instant> askedAt_;
  std::vector<Duration> answerTimes_;
  std::size_t saturations_ = 0;
  const std::shared_ptr<GuardedStation> station_;
};

}  // namespace

int main(int argc, char** argv) {
  const int minutes = std::max(argc > 1 ? std::atoi(argv[1]) : 60, 10);
  pid_t machines = -1;
  const Paths paths = startMachines(machines);
  const ScopedProcessHooks hooks({.print = [](std::string_view, PrintedText) {}});
  const TemporaryUserFolders folders;
  LongHour hour(paths);
  std::printf("%7s %10s %10s %6s %6s %12s %10s %12s\n", "minutes", "resident", "in use", "files", "tasks",
              "processor s", "answer us", "saturations");
  std::optional<ProcessSize> early;
  Duration earlyAnswer{};
  ProcessSize late;
  Duration lateAnswer{};
  for (int minute = 1; minute <= minutes; ++minute) {
    hour.walk(minute);
    if (minute % (minutes / 10) != 0) continue;
    late = ProcessSize::now();
    lateAnswer = hour.takeAnswerTime();
    if (!early) early = late;
    if (earlyAnswer == Duration{}) earlyAnswer = lateAnswer;
    std::printf("%7d %10zu %10zu %6zu %6zu %12.2f %10.0f %12zu\n", minute, late.resident, late.heap,
                late.descriptors, late.threads, std::chrono::duration<double>(late.used).count(),
                std::chrono::duration<double, std::micro>(lateAnswer).count(), hour.takeSaturations());
    std::fflush(stdout);
  }
  hour.demand(late.heap <= early->heap + mostGrowth, "memory grows");
  hour.demand(late.resident <= early->resident + mostResidentGrowth, "the resident set grows");
  hour.demand(late.descriptors <= early->descriptors, "descriptors grow");
  hour.demand(late.threads <= early->threads + mostMoreThreads, "threads grow");
  hour.demand(lateAnswer <= mostSlowdown * earlyAnswer, "answers take longer");
  hour.end();
  kill(machines, SIGKILL);
  waitpid(machines, nullptr, 0);
  std::printf("%d minutes, %d faults\n", minutes, hour.faults);
  return hour.faults == 0 ? 0 : 1;
}
