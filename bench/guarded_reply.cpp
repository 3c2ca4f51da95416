// What the guarded station adds to a reply's way: from the moment when a TrackMaster's report of its load is
// written to a pseudo-terminal until the host hears the load, through the bare facade and through a guarded
// station whose exercise runs. One report goes the one way, the next the other, in one process; the arguments
// are how many reports went before, and whether the station writes its journal. Times are medians, in
// microseconds; the ratios are those of the medians and of the 99th percentiles. This is the host's part of a
// round trip: a guarded station asks by itself, with the same driver.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "simulators/lines/PseudoTerminal.hpp"
#include "tarsil/core/KivStressPortDelegate.hpp"
#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/guard/GuardedStation.hpp"
#include "tarsil/platform/UserFolders.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/support/process.hpp"

namespace {

using namespace std::chrono_literals;
using namespace tarsil;

constexpr int measured = 5000;
const Bytes standing{0xD1, '0', '0', '0', '0', 0xD2, '0', '0', '0', '0'};

/// Where no log can be written: the disk's speed is none of ours.
class NoFolders : public UserFolders {
 public:
  std::string home() override { return "/dev/null"; }
  std::string documents() override { return "/dev/null"; }
};

/// A treadmill that says the same again and again, and how often its host has heard it.
struct Treadmill {
  explicit Treadmill(const std::string& portName) : name(portName) {
    VirtualDeviceRegistry::shared()->add(line.path(), portName);
  }
  ~Treadmill() { VirtualDeviceRegistry::shared()->remove(line.path()); }
  Treadmill(const Treadmill&) = delete;
  Treadmill& operator=(const Treadmill&) = delete;

  /// From the writing of a report until the host has heard it.
  Duration report() {
    line.read();  // what the host has asked meanwhile
    const std::size_t before = heard;
    const Clock::Instant begin = Clock::now();
    line.write(standing);
    if (!RunLoop::main().runUntil([&] { return heard > before; }, 5s)) ++lost;
    return heardAt - begin;
  }
  void hear() {
    ++heard;
    heardAt = Clock::now();
  }

  const std::string name;
  simulators::PseudoTerminal line;
  std::size_t heard = 0;
  std::size_t lost = 0;
  Clock::Instant heardAt{};
};

/// A host of the bare facade.
struct BareHost final : KivStressPortDelegate {
  explicit BareHost(Treadmill& machine) : treadmill(machine) {}
  void onReceivedTreadmillLoadWithSpeed(float /*speed*/, float /*grade*/) override { treadmill.hear(); }

  Treadmill& treadmill;
};

std::shared_ptr<BareHost> openBare(Treadmill& treadmill) {
  auto host = std::make_shared<BareHost>(treadmill);
  auto& station = StressECGDeviceManager::share();
  station.getDeviceByType("Treadmill");
  RunLoop::main().runFor(200ms);  // the news of the port
  station.getPort(false);
  station.port();
  station.getSelected("TrackMaster", PortType::device)->kiv_delegate = host;
  station.selectedPort(treadmill.name, PortType::device);
  if (!station.openPort(PortType::device)) return nullptr;
  RunLoop::main().runFor(200ms);
  return host;
}

std::shared_ptr<GuardedStation> startGuarded(Treadmill& treadmill, std::optional<JournalFile> journal) {
  const auto opened = GuardedStation::open(
      {.exercise = {"TrackMaster", treadmill.name}, .watcher = std::nullopt, .journal = std::move(journal)});
  const auto station = opened.station();
  if (!station) return nullptr;
  station->onEvent([&treadmill](const Event& event) {
    if (std::holds_alternative<LoadMeasured>(event.what)) treadmill.hear();
  });
  for (int second = 0; second < 10 && !station->readiness().isAccepted(); ++second) {
    RunLoop::main().runFor(1s);
    treadmill.report();
  }
  return station->start().isAccepted() ? station : nullptr;
}

double microseconds(Duration duration) {
  return std::chrono::duration<double, std::micro>(duration).count();
}

double percentile(std::vector<Duration>& times, std::size_t percent) {
  const auto place = times.begin() + static_cast<std::ptrdiff_t>(times.size() * percent / 100);
  std::nth_element(times.begin(), place, times.end());
  return microseconds(*place);
}

void reply(benchmark::State& state) {
  UserFolders::exchangeShared(std::make_shared<NoFolders>());
  exchangeProcessHooks({.fatal = {}, .neverReturn = {}, .print = [](std::string_view, PrintedText) {}});
  Treadmill bare("bare");
  Treadmill guarded("guarded");
  const auto host = openBare(bare);
  if (!host) return state.SkipWithError("the port of the bare facade does not open");
  std::string folder = std::filesystem::temp_directory_path() / "bench-guarded-reply-XXXXXX";
  if (!mkdtemp(folder.data())) return state.SkipWithError("no folder for a journal");
  const auto station = startGuarded(
      guarded, state.range(1) != 0 ? std::optional(JournalFile{.path = folder + "/journal"}) : std::nullopt);
  if (!station) return state.SkipWithError("the exercise does not start");

  const auto report = [&](Treadmill& treadmill) {
    station->alive();
    return treadmill.report();
  };
  for (std::int64_t i = 0; i < state.range(0) && bare.lost + guarded.lost < 10; ++i) {
    report(bare);
    report(guarded);
  }
  for (auto _ : state) {
    std::vector<Duration> bareTimes;
    std::vector<Duration> guardedTimes;
    for (int i = 0; i < measured; ++i) {
      bareTimes.push_back(report(bare));
      guardedTimes.push_back(report(guarded));
    }
    state.counters["bare"] = percentile(bareTimes, 50);
    state.counters["guarded"] = percentile(guardedTimes, 50);
    state.counters["ratio"] = percentile(guardedTimes, 50) / percentile(bareTimes, 50);
    state.counters["99 %"] = percentile(guardedTimes, 99) / percentile(bareTimes, 99);
  }
  if (bare.lost + guarded.lost > 2) state.SkipWithError("reports are not heard");
  if (station->state() != GuardedStation::State::running) state.SkipWithError("the exercise did not go on");
  static_cast<void>(station->stop());
  station->close();
  StressECGDeviceManager::share().closePort();
  RunLoop::main().runFor(500ms);
  std::filesystem::remove_all(folder);
}

BENCHMARK(reply)
    ->ArgNames({"before", "journal"})
    ->ArgsProduct({{10, 100'000}, {0, 1}})
    ->Iterations(1)
    ->Unit(benchmark::kSecond);

}  // namespace
