// Minutes of a simulated station on virtual time, and nothing that would be slow in the machine's: a
// treadmill, a blood-pressure monitor and an oximeter in this process, their ports open, the load asked for
// every second. Items per second are simulated seconds per second.
#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <string_view>

#include "simulators/lines/SimulatedStation.hpp"
#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/platform/UserFolders.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/support/ScopedOverride.hpp"
#include "tarsil/support/process.hpp"

namespace {

using namespace std::chrono_literals;
using namespace tarsil;

/// Where no log can be written: the disk's speed is none of ours.
class NoFolders : public UserFolders {
 public:
  std::string home() override { return "/dev/null"; }
  std::string documents() override { return "/dev/null"; }
};

void simulatedSeconds(benchmark::State& state) {
  const ScopedOverride<UserFolders> folders(std::make_shared<NoFolders>());
  exchangeProcessHooks({.fatal = {}, .neverReturn = {}, .print = [](std::string_view, PrintedText) {}});
  static VirtualTime& time = *new VirtualTime;
  simulators::SimulatedStation simulated;
  simulated.add("LodeTreadmill", "belt");
  simulated.add("Tango", "cuff");
  simulated.add("MEDXINGPort", "finger");

  auto& station = StressECGDeviceManager::share();
  station.getDeviceByType("Treadmill");
  time.settle();
  station.getPort(false);
  station.port();
  station.getSelected("LodeTreadmill", PortType::device);
  station.getSelected("Tango", PortType::BP);
  station.getSelected("MEDXINGPort", PortType::SpO2);
  station.selectedPort("belt", PortType::device);
  station.selectedPort("cuff", PortType::BP);
  station.selectedPort("finger", PortType::SpO2);
  for (const auto type : {PortType::device, PortType::BP, PortType::SpO2}) {
    if (!station.openPort(type)) state.SkipWithError("a port did not open");
  }
  time.advance(100ms);
  station.startStressDevice();
  station.setLoad(2.7F, 10.0F);

  for (auto _ : state) {
    for (int second = 0; second < state.range(0); ++second) {
      station.requestLoad();
      time.advance(1s);
    }
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));

  for (const auto& port : {station.devicePort, station.BPPort, station.SpO2Port}) port->close();
  time.settle();
}

BENCHMARK(simulatedSeconds)->Arg(24 * 60)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
