// A protocol of any bytes is refused with its file and line, or its own text gives the same protocol.

#include "tarsil/exercise/Protocol.hpp"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

#include "fuzz/expect.hpp"

using namespace tarsil;

namespace {

std::optional<Protocol> readIfSound(std::string_view text) {
  try {
    return readProtocol(text, "file");
  } catch (const ProtocolError& error) {
    expect(std::string_view(error.what()).starts_with("file:"));
    return std::nullopt;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto protocol = readIfSound({reinterpret_cast<const char*>(data), size});
  if (!protocol) return 0;
  expect(protocol->lines.size() == protocol->phases.size());
  for (std::size_t i = 0; i < protocol->phases.size(); ++i) {
    const Phase& phase = protocol->phases[i];
    expect(std::chrono::seconds(1) <= phase.duration && phase.duration <= std::chrono::hours(2));
    expect(phase.load >= 0 && phase.load <= 999 && phase.endLoad >= 0 && phase.endLoad <= 999);
    expect(phase.grade >= 0 && phase.grade <= 30);
    expect(!protocol->phaseName(i).empty());
  }
  const auto again = readIfSound(protocolText(*protocol));
  expect(again.has_value());
  expect(again->name == protocol->name && again->device == protocol->device);
  expect(again->phases == protocol->phases && again->pressures == protocol->pressures);
  return 0;
}
