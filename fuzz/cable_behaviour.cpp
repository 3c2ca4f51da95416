// The words of a cable are refused with a sentence, or its own words give the same cable.

#include "simulators/lines/CableBehaviour.hpp"

#include <cstdint>
#include <optional>
#include <stdexcept>

#include "fuzz/expect.hpp"

using namespace tarsil::simulators;

namespace {

void expectChance(double chance) {
  tarsil::expect(chance >= 0 && chance <= 1);
}

void expectChances(const WayBehaviour& way) {
  for (const double chance : {way.lose, way.repeat, way.change, way.add}) expectChance(chance);
}

std::optional<CableBehaviour> readIfSound(std::string_view text) {
  try {
    return CableBehaviour::read(text);
  } catch (const std::invalid_argument& refused) {
    tarsil::expect(std::string_view(refused.what()).starts_with("cable: "));
    return std::nullopt;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto cable = readIfSound({reinterpret_cast<const char*>(data), size});
  if (!cable) return 0;
  expectChance(cable->split);
  expectChance(cable->join);
  expectChances(cable->replies);
  expectChances(cable->commands);
  tarsil::expect(readIfSound(cable->text()) == cable);
  return 0;
}
