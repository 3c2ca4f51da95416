#include "tools/tarsil/run/clockText.hpp"

#include <fmt/format.h>

#include <chrono>

namespace tarsil::cli {

std::string clockText(Duration duration) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration).count();
  return fmt::format("{}:{:02}", seconds / 60, seconds % 60);
}

}  // namespace tarsil::cli
