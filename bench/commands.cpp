// What a command takes from the host's call until its bytes are written, for every model and all that it can
// be told, on a port that is open on a pseudo-terminal: of the framework itself, and ("+write") with what the
// system takes to write the bytes, which some commands do two or three times. A Tango's also in the course of
// a long session. Times are medians, in microseconds; a command that a model does not know takes next to
// none. Allocations are those of the dearest command.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bench/allocations/allocations.hpp"
#include "bench/median.hpp"
#include "simulators/lines/PseudoTerminal.hpp"
#include "tarsil/drivers/treadmill/TrackMaster.hpp"
#include "tarsil/drivers/vitals/BPDevice.hpp"
#include "tarsil/log/FileManagerTool.hpp"
#include "tarsil/platform/SystemPlatform.hpp"
#include "tarsil/platform/TerminalWrapper.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/station/standardCatalogue.hpp"
#include "tarsil/support/process.hpp"

namespace {

using namespace std::chrono_literals;
using namespace tarsil;

constexpr int timesGiven = 200;

using Nanoseconds = std::chrono::nanoseconds;

/// The system's terminals, and how long they took to write.
class TimedTerminal final : public TerminalWrapper {
 public:
  TimedTerminal() : TerminalWrapper(systemTerminal()) {}

  Result<std::size_t> write(int descriptor, const void* bytes, std::size_t size) override {
    const auto begin = std::chrono::steady_clock::now();
    const auto written = TerminalWrapper::write(descriptor, bytes, size);
    writing_ += std::chrono::steady_clock::now() - begin;
    return written;
  }
  Nanoseconds takeWriting() { return std::exchange(writing_, {}); }

 private:
  /// Of the thread that gives the commands.
  Nanoseconds writing_{};
};

/// An open port, and what its device does: it echoes a command while somebody waits for that.
class Line {
 public:
  Line() {
    auto device = std::make_shared<SerialDevice>();
    device->calloutPath = terminal_.path();
    device->terminal = timed_;
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
  /// What the system took to write since it was last asked.
  Nanoseconds takeWriting() { return timed_->takeWriting(); }

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
  const std::shared_ptr<TimedTerminal> timed_ = std::make_shared<TimedTerminal>();
  std::shared_ptr<ORSSerialPort> port_;
};

/// In microseconds.
struct Cost {
  double own;
  double withWrite;
  double allocations;
};

double microseconds(Nanoseconds time) {
  return std::chrono::duration<double, std::micro>(time).count();
}

Cost costOf(Line& line, const std::function<void()>& command, const std::function<void()>& afterwards) {
  std::vector<double> own;
  std::vector<double> withWrite;
  std::vector<double> allocations;
  for (int i = 0; i < timesGiven; ++i) {
    line.takeWriting();
    const std::size_t before = bench::allocations();
    const auto begin = std::chrono::steady_clock::now();
    command();
    const Nanoseconds took = std::chrono::steady_clock::now() - begin;
    withWrite.push_back(microseconds(took));
    own.push_back(microseconds(took - line.takeWriting()));
    allocations.push_back(static_cast<double>(bench::allocations() - before));
    afterwards();
  }
  return {bench::median(own), bench::median(withWrite), bench::median(allocations)};
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

void commandsOf(benchmark::State& state, const DeviceModel& model) {
  writeNothingDown();
  Line line;
  const auto device = model.makeDevice();
  device->setSerialPort(line.port());
  for (auto _ : state) {
    double mostAllocations = 0;
    for (const Command& command : commands) {
      const Cost cost = costOf(
          line, [&] { command.give(*device); },
          [&] {
            line.answer();
            forgetTheLastCommand(*device);
          });
      state.counters[command.name] = cost.own;
      state.counters[command.name + std::string("+write")] = cost.withWrite;
      mostAllocations = std::max(mostAllocations, cost.allocations);
    }
    state.counters["allocs"] = mostAllocations;
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
    const Cost cost = costOf(
        line, [&] { tango->startBP(); }, [&] { line.answer(); });
    state.counters["startBP"] = cost.own;
    state.counters["startBP+write"] = cost.withWrite;
    state.counters["allocs"] = cost.allocations;
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
