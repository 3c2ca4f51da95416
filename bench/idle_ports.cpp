// What open ports cost while nothing happens: wake-ups and processor time a second of one and of three ports
// on pseudo-terminals, beside a bare thread that ticks every ten milliseconds, which is how often a port
// looks at its modem lines, and beside one that looks at as many itself. And the threads of the process, its
// first one included, with the memory that it holds beyond what it held when it began, which is what a
// program holds that links the framework and does not use it; in megabytes.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "simulators/lines/PseudoTerminal.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/support/FileDescriptor.hpp"

namespace {

using namespace std::chrono_literals;
using namespace tarsil;

constexpr auto watched = 3s;

struct Usage {
  double wakeUps;
  double seconds;
};

Usage usage() {
  rusage now{};
  getrusage(RUSAGE_SELF, &now);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
  };
  return {static_cast<double>(now.ru_nvcsw), seconds(now.ru_utime) + seconds(now.ru_stime)};
}

double residentMegabytes() {
  std::ifstream memory("/proc/self/smaps_rollup");
  std::string word;
  while (memory >> word && word != "Rss:") continue;
  double kibibytes = 0;
  memory >> kibibytes;
  return kibibytes * 1024 / 1e6;
}

double heldWhenItBegan() {
  static const double held = residentMegabytes();
  return held;
}

double threads() {
  const auto all = std::filesystem::directory_iterator("/proc/self/task");
  return static_cast<double>(std::distance(begin(all), end(all)));
}

void report(benchmark::State& state, const Usage& before) {
  const Usage after = usage();
  const double seconds = std::chrono::duration<double>(watched).count();
  state.counters["wake-ups/s"] = (after.wakeUps - before.wakeUps) / seconds;
  state.counters["CPU %"] = 100.0 * (after.seconds - before.seconds) / seconds;
  state.counters["threads"] = threads();
  state.counters["MB"] = residentMegabytes() - heldWhenItBegan();
}

void bareTick(benchmark::State& state) {
  heldWhenItBegan();
  std::vector<std::unique_ptr<simulators::PseudoTerminal>> terminals;
  std::vector<FileDescriptor> lines;
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    terminals.push_back(std::make_unique<simulators::PseudoTerminal>());
    lines.emplace_back(open(terminals.back()->path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  }
  std::atomic<bool> goOn = true;
  std::thread ticking([&] {
    const int clock = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    const itimerspec beat{.it_interval = {.tv_sec = 0, .tv_nsec = 10'000'000},
                          .it_value = {.tv_sec = 0, .tv_nsec = 10'000'000}};
    timerfd_settime(clock, 0, &beat, nullptr);
    std::uint64_t beats = 0;
    while (goOn && read(clock, &beats, sizeof beats) > 0) {
      for (const auto& line : lines) {
        int modemLines = 0;
        benchmark::DoNotOptimize(ioctl(line.get(), TIOCMGET, &modemLines));
      }
    }
    close(clock);
  });
  for (auto _ : state) {
    const Usage before = usage();
    RunLoop::main().runFor(watched);
    report(state, before);
  }
  goOn = false;
  ticking.join();
}

void idlePorts(benchmark::State& state) {
  heldWhenItBegan();
  std::vector<std::unique_ptr<simulators::PseudoTerminal>> terminals;
  std::vector<std::shared_ptr<ORSSerialPort>> ports;
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    terminals.push_back(std::make_unique<simulators::PseudoTerminal>());
    const std::string& path = terminals.back()->path();
    VirtualDeviceRegistry::shared()->add(path, path);
    ports.push_back(ORSSerialPort::serialPortWithPath(path));
    if (!ports.back()) return state.SkipWithError("a port is not there");
    ports.back()->open();
    if (!ports.back()->isOpen()) return state.SkipWithError("a port did not open");
    // Not together: nobody opens three ports in one millisecond.
    RunLoop::main().runFor(13ms);
  }
  for (auto _ : state) {
    const Usage before = usage();
    RunLoop::main().runFor(watched);
    report(state, before);
  }
  for (const auto& port : ports) {
    port->close();
    VirtualDeviceRegistry::shared()->remove(port->path());
  }
  RunLoop::main().runFor(100ms);
}

BENCHMARK(bareTick)->Arg(0)->Arg(3)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(idlePorts)->Arg(1)->Arg(3)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace
