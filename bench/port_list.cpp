// What a list of the machine's ports costs, beside a bare look at which terminals have a device behind them.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <array>
#include <filesystem>

#include "tarsil/platform/SystemPlatform.hpp"

namespace {

void bareScan(benchmark::State& state) {
  for (auto _ : state) {
    std::size_t found = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/sys/class/tty")) {
      std::array<char, 256> target{};
      if (readlink((entry.path() / "device").c_str(), target.data(), target.size()) > 0) ++found;
    }
    benchmark::DoNotOptimize(found);
  }
}

void listOfPorts(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(tarsil::systemSerialDeviceRegistry()->devices());
}

BENCHMARK(bareScan)->Unit(benchmark::kMicrosecond);
BENCHMARK(listOfPorts)->Unit(benchmark::kMicrosecond);

}  // namespace
