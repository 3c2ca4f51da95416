// What a driver takes for a byte that it receives, and whether that grows with what it has received in its
// life: an old driver and a new one, which has had a kilobyte, take turns. Times are medians, in nanoseconds.
// The chunks are what a driver keeps longest: no reply in them is ever complete, but for the TrackMaster (in
// whose normal state each chunk is a reply) and the oximeter (which keeps no bytes at all). The drivers that
// are left out discard what they receive.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bench/allocations/allocations.hpp"
#include "bench/median.hpp"
#include "tarsil/drivers/ergometer/ErgolineP10.hpp"
#include "tarsil/drivers/ergometer/ErgosanaP10.hpp"
#include "tarsil/drivers/treadmill/LodeOEMTreadmill.hpp"
#include "tarsil/drivers/treadmill/LodeTreadmill.hpp"
#include "tarsil/drivers/treadmill/TrackMaster.hpp"
#include "tarsil/drivers/vitals/BPDevice.hpp"
#include "tarsil/drivers/vitals/MEDXINGPort.hpp"
#include "tarsil/drivers/vitals/SpO2Device.hpp"
#include "tarsil/log/FileManagerTool.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/support/process.hpp"

namespace {

using namespace tarsil;

constexpr std::int64_t kilobyte = 1'000;

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
using Chunks = std::vector<Bytes>;

template <class Driver>
Receiver make() {
  return std::make_shared<Driver>();
}

template <>
Receiver make<MEDXINGPort>() {
  return std::make_shared<MEDXINGPort>(SpO2DeviceSettings{});
}

template <>
Receiver make<SpO2Device>() {
  return std::make_shared<SpO2Device>(SpO2DeviceSettings{});
}

std::size_t sizeOf(const Chunks& chunks) {
  std::size_t size = 0;
  for (const Bytes& chunk : chunks) size += chunk.size();
  return size;
}

/// All that was received by a benchmark.
std::int64_t bytesSoFar = 0;

/// Never inlined: what it does is what `./benchmark --count` counts.
[[gnu::noinline]] void receive(ORSSerialPortDelegate& receiver, const Chunks& chunks, std::int64_t bytes) {
  static const auto port = closedPort();
  const auto size = static_cast<std::int64_t>(sizeOf(chunks));
  for (std::int64_t received = 0; received < bytes; received += size) {
    for (const Bytes& chunk : chunks) receiver.serialPortDidReceiveData(*port, chunk);
    bytesSoFar += size;
  }
}

/// For a kilobyte, after one that is not timed.
double nanosecondsAByte(ORSSerialPortDelegate& receiver, const Chunks& chunks) {
  receive(receiver, chunks, kilobyte);
  const auto begin = std::chrono::steady_clock::now();
  receive(receiver, chunks, kilobyte);
  const std::chrono::duration<double, std::nano> taken = std::chrono::steady_clock::now() - begin;
  return taken.count() / static_cast<double>(kilobyte);
}

void receivedBytes(benchmark::State& state, Receiver (*makeReceiver)(), const Chunks& chunks) {
  writeNoLog();
  bytesSoFar = 0;
  const auto hooks =
      exchangeProcessHooks({.fatal = {}, .neverReturn = {}, .print = [](std::string_view, PrintedText) {}});
  const auto old = makeReceiver();
  receive(*old, chunks, state.range(0));

  std::vector<double> timesOfOld;
  std::vector<double> timesOfNew;
  for (auto _ : state) {
    timesOfNew.push_back(nanosecondsAByte(*makeReceiver(), chunks));
    timesOfOld.push_back(nanosecondsAByte(*old, chunks));
  }
  state.counters["ns/byte"] = bench::median(timesOfOld);
  state.counters["ratio"] = bench::median(timesOfOld) / bench::median(timesOfNew);

  const std::size_t before = bench::allocations();
  receive(*old, chunks, kilobyte);
  state.counters["allocs/byte"] = static_cast<double>(bench::allocations() - before) / kilobyte;
  state.counters["bytes"] = static_cast<double>(bytesSoFar);
  exchangeProcessHooks(hooks);
}

// In one go, so that the long life is lived only once.
#define RECEIVED_BYTES(name, Driver, ...)                                  \
  BENCHMARK_CAPTURE(receivedBytes, name, make<Driver>, Chunks __VA_ARGS__) \
      ->ArgName("before")                                                  \
      ->Arg(10'000)                                                        \
      ->Arg(100'000'000)                                                   \
      ->Iterations(500)                                                    \
      ->Repetitions(1)

RECEIVED_BYTES(LodeTreadmill, LodeTreadmill, {{0x31}});
RECEIVED_BYTES(LodeOEMTreadmill, LodeOEMTreadmill, {{0x31}});
RECEIVED_BYTES(TrackMaster, TrackMaster, {{0xB1}});
RECEIVED_BYTES(TrackMasterRefusals, TrackMaster, {{0xBE}});
RECEIVED_BYTES(TrackMasterLoadByteByByte, TrackMaster,
               {{0xD1}, {'0'}, {'0'}, {'3'}, {'0'}, {0xD2}, {'0'}, {'0'}, {'5'}, {'0'}});
RECEIVED_BYTES(ErgolineP10, ErgolineP10, {{'1', '0', '8', '0', '5'}});
RECEIVED_BYTES(ErgosanaP10, ErgosanaP10, {{'1', '0', '8', '0', '5'}});
RECEIVED_BYTES(BPDevice, BPDevice, {{'1', '2', '3', '4', '5'}});
RECEIVED_BYTES(MEDXINGPort, MEDXINGPort, {{0x00, 0x00, 0x00, 0x00, 0x23, 0x95, 0x00, 0x00, 0x61, 0x00}});
RECEIVED_BYTES(SpO2Device, SpO2Device, {{'S', 'P', 'O', '2', ' '}});

}  // namespace
