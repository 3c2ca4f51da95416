// Bytes per second that each receiving driver takes in, after 1 kB, 1 MB and 10 MB of the same in its life.
// The rates of one driver should not differ. The chunks are what a driver keeps longest: no reply in them is
// ever complete, but for the TrackMaster (in whose normal state each chunk is a reply) and the oximeter
// (which keeps no bytes at all).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "tarsil/drivers/ergometer/ErgolineP10.hpp"
#include "tarsil/drivers/ergometer/ErgosanaP10.hpp"
#include "tarsil/drivers/treadmill/LodeOEMTreadmill.hpp"
#include "tarsil/drivers/treadmill/LodeTreadmill.hpp"
#include "tarsil/drivers/treadmill/TrackMaster.hpp"
#include "tarsil/drivers/vitals/BPDevice.hpp"
#include "tarsil/drivers/vitals/MEDXINGPort.hpp"
#include "tarsil/log/FileManagerTool.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/support/process.hpp"

namespace {

using namespace tarsil;

/// The traffic log goes nowhere: the disk's speed is none of ours.
void writeNoLog() {
  FileManagerTool& log = FileManagerTool::share();
  log.isFile = true;
  if (log.logFile == nullptr) log.logFile = std::fopen("/dev/null", "w");
}

/// Exists so that drivers can be told which port they hear.
std::shared_ptr<ORSSerialPort> closedPort() {
  return ORSSerialPort::serialPortWithDevice(std::make_shared<SerialDevice>());
}

using Receiver = std::shared_ptr<ORSSerialPortDelegate>;

template <class Driver>
Receiver make() {
  return std::make_shared<Driver>();
}

template <>
Receiver make<MEDXINGPort>() {
  return std::make_shared<MEDXINGPort>(SpO2DeviceSettings{});
}

void receiveAfterHistory(benchmark::State& state, Receiver (*makeReceiver)(), const Bytes& chunk) {
  writeNoLog();
  const auto hooks =
      exchangeProcessHooks({.fatal = {}, .neverReturn = {}, .print = [](std::string_view, PrintedText) {}});
  const auto port = closedPort();
  const auto receiver = makeReceiver();
  const auto history = state.range(0) / static_cast<std::int64_t>(chunk.size());
  for (std::int64_t i = 0; i < history; ++i) receiver->serialPortDidReceiveData(*port, chunk);

  for (auto _ : state) receiver->serialPortDidReceiveData(*port, chunk);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(chunk.size()));
  exchangeProcessHooks(hooks);
}

#define AFTER_HISTORY(Driver, ...)                                                \
  BENCHMARK_CAPTURE(receiveAfterHistory, Driver, make<Driver>, Bytes __VA_ARGS__) \
      ->ArgName("before")                                                         \
      ->Arg(1'000)                                                                \
      ->Arg(1'000'000)                                                            \
      ->Arg(10'000'000)

AFTER_HISTORY(LodeTreadmill, {0x31});
AFTER_HISTORY(LodeOEMTreadmill, {0x31});
AFTER_HISTORY(TrackMaster, {0xBE});
AFTER_HISTORY(ErgolineP10, {'1', '0', '8', '0', '5'});
AFTER_HISTORY(ErgosanaP10, {'1', '0', '8', '0', '5'});
AFTER_HISTORY(BPDevice, {'1', '2', '3', '4', '5'});
AFTER_HISTORY(MEDXINGPort, {0x00, 0x00, 0x00, 0x00, 0x23, 0x95, 0x00, 0x00, 0x61, 0x00});

}  // namespace
