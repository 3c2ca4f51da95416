#include "tools/tarsil/run/phaseName.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace tarsil::cli {

std::string phaseName(const Protocol& protocol, std::size_t index) {
  const auto& phases = protocol.phases;
  if (phases[index].kind == Phase::Kind::warmUp) return "warm-up";
  if (phases[index].kind == Phase::Kind::recovery) return "recovery";
  const auto isStage = [](const Phase& phase) { return phase.kind == Phase::Kind::stage; };
  const auto upTo =
      std::count_if(phases.begin(), phases.begin() + static_cast<std::ptrdiff_t>(index) + 1, isStage);
  return fmt::format("stage {} of {}", upTo, std::count_if(phases.begin(), phases.end(), isStage));
}

}  // namespace tarsil::cli
