// What a port takes to look for packets in a byte that it receives, for every kind of descriptor and maximum
// length, beside `memmem` over the same bytes, which looks for the same beginnings and ends. Both have every
// other pass over a stream in which no packet begins, one in which packets begin and never end, and one of
// whole packets that are as long as they may be. Times are medians, in nanoseconds.
//
// An evaluator or an expression is asked about every tail of the bytes that are kept, after every byte: their
// time grows with the maximum length by what they are for.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "bench/median.hpp"
#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"
#include "tarsil/serial/detail/PacketListener.hpp"

namespace {

using namespace tarsil;

const Bytes prefix{'$'};
const Bytes suffix{'\r', '\n'};

// As many bytes as a port reads at once.
constexpr std::size_t chunkSize = 1024;

/// No prefix and no suffix, but what could be half a suffix again and again.
Bytes noise(std::size_t size) {
  constexpr std::uint8_t letters[] = {'I', 'N', 'I', 'T', '\n', '1', '2', '3', 'A', '\r', 'x'};
  Bytes bytes(size);
  std::size_t i = 0;
  for (auto& byte : bytes) byte = letters[i++ % std::size(letters)];
  return bytes;
}

Bytes joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Bytes packet(std::size_t size) {
  return joined({prefix, noise(size - prefix.size() - suffix.size()), suffix});
}

using Stream = Bytes (*)(std::size_t maximum);
Bytes nothingBegins(std::size_t maximum) {
  return noise(maximum);
}
Bytes nothingEnds(std::size_t maximum) {
  return joined({prefix, noise(maximum - prefix.size())});
}

using Descriptor = detail::PacketListener::Descriptor;
using Shape = Descriptor (*)(std::size_t maximum);
template <class Given>
Descriptor descriptorOf(Given shape) {
  return std::make_shared<ORSSerialPacketDescriptor>(std::move(shape));
}
Descriptor fixedPacket(std::size_t maximum) {
  return descriptorOf(ORSSerialPacketDescriptor::FixedPacket{.packetData = packet(maximum)});
}
Descriptor between(std::size_t maximum) {
  return descriptorOf(ORSSerialPacketDescriptor::PrefixAndSuffix{
      .prefix = prefix, .suffix = suffix, .maximumPacketLength = maximum});
}
Descriptor evaluator(std::size_t maximum) {
  return descriptorOf(ORSSerialPacketDescriptor::Evaluated{
      .maximumPacketLength = maximum, .responseEvaluator = [](ByteView bytes) {
        return bytes.size() > 2 && bytes.front() == '$' && bytes[bytes.size() - 2] == '\r' &&
               bytes.back() == '\n';
      }});
}
Descriptor expression(std::size_t maximum) {
  return descriptorOf(ORSSerialPacketDescriptor::Expression{
      .regularExpression = RegularExpression("\\$[^$]*\\r\\n"), .maximumPacketLength = maximum});
}

/// As a port does with what it reads. Never inlined: it is what `./benchmark --count` counts.
[[gnu::noinline]] void listen(detail::PacketListener& listener, ByteView stream) {
  for (std::size_t begin = 0; begin < stream.size(); begin += chunkSize) {
    const ByteView chunk = stream.subspan(begin, std::min(chunkSize, stream.size() - begin));
    listener.begin(chunk);
    for (std::size_t at = listener.next(); at < chunk.size(); at = std::max(at + 1, listener.next()))
      listener.append(chunk, at);
  }
}

/// Looks for the needles in turn, each behind the one before.
std::size_t findAll(ByteView stream, const std::vector<Bytes>& needles) {
  std::size_t found = 0;
  for (;;) {
    const Bytes& needle = needles[found % needles.size()];
    const void* place = memmem(stream.data(), stream.size(), needle.data(), needle.size());
    if (place == nullptr) return found;
    ++found;
    const auto before = static_cast<std::size_t>(static_cast<const std::uint8_t*>(place) - stream.data());
    stream = stream.subspan(before + needle.size());
  }
}

double nanoseconds(const std::function<void()>& pass) {
  const auto begin = std::chrono::steady_clock::now();
  pass();
  return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - begin).count();
}

void matching(benchmark::State& state, Shape shape, Stream part) {
  const auto maximum = static_cast<std::size_t>(state.range(0));
  Bytes stream;
  while (stream.size() < 4 * chunkSize) stream = joined({stream, part(maximum)});
  const auto descriptor = shape(maximum);
  std::vector<Bytes> needles{prefix, suffix};
  if (descriptor->packetData()) needles = {*descriptor->packetData()};
  std::size_t packets = 0;
  detail::PacketListener listener([&](const Bytes&, const Descriptor&) { ++packets; });
  listener.start(descriptor);

  std::vector<double> times;
  std::vector<double> timesOfMemmem;
  for (auto _ : state) {
    times.push_back(nanoseconds([&] { listen(listener, stream); }));
    timesOfMemmem.push_back(nanoseconds([&] { benchmark::DoNotOptimize(findAll(stream, needles)); }));
  }
  if ((packets > 0) != (part == packet)) state.SkipWithError("what is found is not what is there");
  const auto bytes = static_cast<double>(stream.size());
  state.counters["ns/byte"] = bench::median(times) / bytes;
  state.counters["memmem"] = bench::median(timesOfMemmem) / bytes;
  state.counters["ratio"] = bench::median(times) / bench::median(timesOfMemmem);
  state.counters["bytes"] = bytes * static_cast<double>(times.size());
}

#define MATCHING_STREAM(name, shape, stream, maxima) \
  BENCHMARK_CAPTURE(matching, name, shape, stream)   \
      ->ArgName("maximum")                           \
      ->ArgsProduct({maxima})                        \
      ->Iterations(15)                               \
      ->Repetitions(1)
#define MATCHING(shape, maxima)                                        \
  MATCHING_STREAM(shape##NothingBegins, shape, nothingBegins, maxima); \
  MATCHING_STREAM(shape##NothingEnds, shape, nothingEnds, maxima);     \
  MATCHING_STREAM(shape##Packets, shape, packet, maxima)

const std::vector<std::int64_t> allMaxima{16, 1 << 10, 1 << 16, 1 << 20};
// To fill a buffer of 64 KiB byte by byte alone would take two thousand million questions.
const std::vector<std::int64_t> shortMaxima{16, 1 << 10};

MATCHING(fixedPacket, allMaxima);
MATCHING(between, allMaxima);
MATCHING(evaluator, shortMaxima);
MATCHING(expression, shortMaxima);

}  // namespace
