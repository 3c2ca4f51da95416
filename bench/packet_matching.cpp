// Bytes per second that a port matches against one descriptor, after 1 kB, 1 MB and 10 MB of bytes that are
// part of no packet. The rates of one descriptor should not differ.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <utility>

#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"
#include "tarsil/serial/detail/PacketMatcher.hpp"

namespace {

using namespace tarsil;
using detail::PacketMatcher;

constexpr std::uint64_t anyLength = std::numeric_limits<std::int64_t>::max();
constexpr std::uint64_t usualLength = 64;

template <class Shape>
std::unique_ptr<PacketMatcher> matcherOf(Shape shape) {
  return PacketMatcher::make(std::make_shared<ORSSerialPacketDescriptor>(std::move(shape)));
}

std::unique_ptr<PacketMatcher> fixedPacket() {
  return matcherOf(ORSSerialPacketDescriptor::FixedPacket{.packetData = {'I', 'N', 'I', 'T', '\n', '\r'}});
}

std::unique_ptr<PacketMatcher> between(std::uint64_t maximumLength) {
  return matcherOf(ORSSerialPacketDescriptor::PrefixAndSuffix{
      .prefix = Bytes{'$'}, .suffix = Bytes{'\r', '\n'}, .maximumPacketLength = maximumLength});
}

std::unique_ptr<PacketMatcher> betweenWithinFullBuffer() {
  return between(usualLength);
}
std::unique_ptr<PacketMatcher> betweenOfAnyLength() {
  return between(anyLength);
}

// A packet has begun and does not end: all bytes are kept.
std::unique_ptr<PacketMatcher> betweenThatHasBegun() {
  auto matcher = between(anyLength);
  matcher->append('$');
  return matcher;
}

std::unique_ptr<PacketMatcher> evaluator() {
  return matcherOf(ORSSerialPacketDescriptor::Evaluated{
      .maximumPacketLength = usualLength,
      .responseEvaluator = [](ByteView bytes) { return bytes.size() > 4 && bytes.front() == '$'; }});
}

std::unique_ptr<PacketMatcher> expression() {
  return matcherOf(ORSSerialPacketDescriptor::Expression{
      .regularExpression = RegularExpression("[0-9]{3,4}[A-Z]\\s\\s"), .maximumPacketLength = usualLength});
}

Bytes noise(std::size_t size) {
  Bytes bytes(size);
  // Near misses: every beginning of the packets above comes again and again.
  constexpr std::uint8_t letters[] = {'I', 'N', 'I', 'T', '\n', '1', '2', '3', 'A', '\r', 'x'};
  std::size_t i = 0;
  for (auto& byte : bytes) byte = letters[i++ % std::size(letters)];
  return bytes;
}

void matchAfterHistory(benchmark::State& state, std::unique_ptr<PacketMatcher> (*make)()) {
  const auto matcher = make();
  for (const std::uint8_t byte : noise(static_cast<std::size_t>(state.range(0)))) matcher->append(byte);

  const Bytes chunk = noise(1100);
  for (auto _ : state) {
    for (const std::uint8_t byte : chunk) benchmark::DoNotOptimize(matcher->append(byte));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(chunk.size()));
}

#define AFTER_HISTORY(make)                        \
  BENCHMARK_CAPTURE(matchAfterHistory, make, make) \
      ->ArgName("before")                          \
      ->Arg(1'000)                                 \
      ->Arg(1'000'000)                             \
      ->Arg(10'000'000)

AFTER_HISTORY(fixedPacket);
AFTER_HISTORY(betweenWithinFullBuffer);
AFTER_HISTORY(betweenOfAnyLength);
AFTER_HISTORY(betweenThatHasBegun);
AFTER_HISTORY(evaluator);
// Ten megabytes of history alone would take a minute; the buffer is full after 64 bytes.
BENCHMARK_CAPTURE(matchAfterHistory, expression, expression)->ArgName("before")->Arg(1'000)->Arg(1'000'000);

}  // namespace
