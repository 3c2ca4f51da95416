// Bytes per second that a port takes from a pseudo-terminal and hands to its delegate on the main thread,
// with 0, 1 and 10 descriptors that nothing matches; and beside it what a bare thread reads of the same, 1024
// bytes at a time. Only their ratios within one run say anything:
// --benchmark_enable_random_interleaving=true.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "tarsil/platform/SystemPlatform.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"

namespace {

using namespace tarsil;
using namespace std::chrono_literals;

constexpr std::size_t amount = 4'000'000;

/// A raw pseudo-terminal, whose far end is at `path`.
struct Line {
  Line() {
    std::array<char, 64> name{};
    if (openpty(&device, &far, name.data(), nullptr, nullptr) != 0) std::abort();
    termios modes{};
    tcgetattr(far, &modes);
    cfmakeraw(&modes);
    tcsetattr(far, TCSANOW, &modes);
    path = name.data();
  }
  ~Line() {
    close(far);
    close(device);
  }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  void send() const {
    const std::string piece(4000, 'x');
    for (std::size_t sent = 0; sent < amount;) {
      const ssize_t count = write(device, piece.data(), std::min(piece.size(), amount - sent));
      if (count > 0) sent += static_cast<std::size_t>(count);
    }
  }

  int device = -1;
  int far = -1;
  std::string path;
};

struct Counter final : ORSSerialPortDelegate {
  void serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& data) override { bytes += data.size(); }
  void serialPortWasOpened(ORSSerialPort& /*port*/) override { isOpen = true; }
  void serialPortWasClosed(ORSSerialPort& /*port*/) override { isOpen = false; }
  std::size_t bytes = 0;
  bool isOpen = false;
};

void throughAPort(benchmark::State& state) {
  const Line line;
  auto device = std::make_shared<SerialDevice>();
  device->calloutPath = line.path;
  device->terminal = systemTerminal();
  const auto port = ORSSerialPort::serialPortWithDevice(device);
  const auto counter = std::make_shared<Counter>();
  port->setDelegate(counter);
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    port->startListeningForPacketsMatchingDescriptor(
        std::make_shared<ORSSerialPacketDescriptor>(ORSSerialPacketDescriptor::PrefixAndSuffix{
            .prefix = Bytes{'$'}, .suffix = Bytes{'\r', '\n'}, .maximumPacketLength = 64}));
  }
  port->open();
  RunLoop::main().runUntil([&] { return counter->isOpen; }, 60s);
  for (auto _ : state) {
    counter->bytes = 0;
    std::thread sender([&] { line.send(); });
    RunLoop::main().runUntil([&] { return counter->bytes == amount; }, 60s);
    sender.join();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(amount));
  port->close();
  RunLoop::main().runUntil([&] { return !counter->isOpen; }, 60s);
}

void byABareThread(benchmark::State& state) {
  const Line line;
  for (auto _ : state) {
    std::thread sender([&] { line.send(); });
    std::array<char, 1024> buffer{};
    for (std::size_t bytes = 0; bytes < amount;) {
      const ssize_t count = read(line.far, buffer.data(), buffer.size());
      if (count > 0) bytes += static_cast<std::size_t>(count);
    }
    sender.join();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(amount));
}

BENCHMARK(byABareThread)->UseRealTime();
BENCHMARK(throughAPort)->Arg(0)->Arg(1)->Arg(10)->UseRealTime();

}  // namespace
