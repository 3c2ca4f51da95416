// What a command takes from the host's call until its bytes are written, for every model and all that it can
// be told, on a port that is open on a pseudo-terminal; beside it the system's bare call for as many bytes as
// most commands have, of which some commands make two or three. A Tango's also in the course of a long
// session. Times are medians, in microseconds; a command that a model does not know takes next to none.
// Allocations are those of the dearest command.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "bench/allocations/allocations.hpp"
#include "simulators/lines/PseudoTerminal.hpp"
#include "tarsil/drivers/treadmill/TrackMaster.hpp"
#include "tarsil/drivers/vitals/BPDevice.hpp"
#include "tarsil/log/FileManagerTool.hpp"
#include "tarsil/platform/SystemPlatform.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/station/standardCatalogue.hpp"
#include "tarsil/support/process.hpp"

namespace {

using namespace std::chrono_literals;
using namespace tarsil;

constexpr int timesGiven = 200;

/// An open port, and what its device does: it echoes a command while somebody waits for that.
class Line {
 public:
  Line() {
    auto device = std::make_shared<SerialDevice>();
    device->calloutPath = terminal_.path();
    device->terminal = systemTerminal();
    port_ = ORSSerialPort::serialPortWithDevice(device);
    port_->open();
  }
  ~Line() {
    RunLoop::main().runFor(200ms);  // the second halves of commands
    port_->close();
    while (port_->isOpen()) RunLoop::main().runFor(10ms);
  }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  const std::shared_ptr<ORSSerialPort>& port() const { return port_; }

  void answer() {
    while (port_->pendingRequest()) {
      const Bytes command = terminal_.read();
      if (!command.empty()) terminal_.write(command);
      RunLoop::main().runFor(20us);
    }
    terminal_.read();
  }

 private:
  simulators::PseudoTerminal terminal_;
  std::shared_ptr<ORSSerialPort> port_;
};

struct Cost {
  double microseconds;
  double allocations;
};

double median(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

Cost costOf(const std::function<void()>& command, const std::function<void()>& afterwards) {
  std::vector<double> times;
  std::vector<double> allocations;
  for (int i = 0; i < timesGiven; ++i) {
    const std::size_t before = bench::allocations();
    const auto begin = std::chrono::steady_clock::now();
    command();
    times.push_back(
        std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count());
    allocations.push_back(static_cast<double>(bench::allocations() - before));
    afterwards();
  }
  return {median(times), median(allocations)};
}

struct Command {
  const char* name;
  void (*give)(KivStressDevice&);
};

constexpr Command commands[] = {
    {"start", [](KivStressDevice& device) { device.startDeivce(); }},
    {"setLoad", [](KivStressDevice& device) { device.setLoad(16, 4); }},
    {"requestLoad", [](KivStressDevice& device) { device.requestLoad(); }},
    {"stop", [](KivStressDevice& device) { device.stopStressDevice(); }},
    {"startBP", [](KivStressDevice& device) { device.startBP(); }},
    {"requestBP", [](KivStressDevice& device) { device.requestBP(); }},
};

/// Neither the disk's speed nor the terminal's is any of ours.
void writeNothingDown() {
  exchangeProcessHooks({.fatal = {}, .neverReturn = {}, .print = [](std::string_view, PrintedText) {}});
  FileManagerTool& log = FileManagerTool::share();
  log.isFile = true;
  if (log.logFile == nullptr) log.logFile = std::fopen("/dev/null", "w");
}

/// A TrackMaster holds requests back that follow each other fast, and a stop while it stops.
void forgetTheLastCommand(KivStressDevice& device) {
  const auto treadmill = dynamic_cast<TrackMaster*>(&device);
  if (treadmill == nullptr) return;
  treadmill->beforDate.reset();
  treadmill->isStop = false;
  if (treadmill->timer) treadmill->timer->invalidate();
}

/// What the system takes to write a command.
double bareWrite() {
  static simulators::PseudoTerminal terminal;
  static const int line = open(terminal.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  constexpr std::string_view bytes = "STRT\n\r";
  return costOf([&] { benchmark::DoNotOptimize(write(line, bytes.data(), bytes.size())); },
                [&] { terminal.read(); })
      .microseconds;
}

void commandsOf(benchmark::State& state, const DeviceModel& model) {
  writeNothingDown();
  Line line;
  const auto device = model.makeDevice();
  device->setSerialPort(line.port());
  for (auto _ : state) {
    double mostAllocations = 0;
    for (const Command& command : commands) {
      const Cost cost = costOf([&] { command.give(*device); },
                               [&] {
                                 line.answer();
                                 forgetTheLastCommand(*device);
                               });
      state.counters[command.name] = cost.microseconds;
      mostAllocations = std::max(mostAllocations, cost.allocations);
    }
    state.counters["allocs"] = mostAllocations;
    state.counters["write"] = bareWrite();
  }
}

void startBPOfATango(benchmark::State& state) {
  writeNothingDown();
  Line line;
  const auto tango = std::make_shared<BPDevice>();
  tango->setSerialPort(line.port());
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    tango->startBP();
    line.answer();
  }
  for (auto _ : state) {
    const Cost cost = costOf([&] { tango->startBP(); }, [&] { line.answer(); });
    state.counters["startBP"] = cost.microseconds;
    state.counters["allocs"] = cost.allocations;
    state.counters["write"] = bareWrite();
  }
}

BENCHMARK(startBPOfATango)
    ->ArgName("commands")
    ->Arg(1)
    ->Arg(1'000)
    ->Arg(10'000)
    ->Iterations(1)
    ->Repetitions(1);

const bool areRegistered = [] {
  for (const DeviceModel& model : standardCatalogue().models()) {
    // The others have no line.
    if (!model.makeFraming) continue;
    benchmark::RegisterBenchmark(model.name.c_str(), commandsOf, model)->Iterations(1)->Repetitions(1);
  }
  return true;
}();

}  // namespace
