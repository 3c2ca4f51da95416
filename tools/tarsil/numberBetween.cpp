#include "tools/tarsil/numberBetween.hpp"

#include <fmt/format.h>

#include "tarsil/support/numberText.hpp"

namespace tarsil::cli {

CLI::Validator numberBetween(double least, double greatest) {
  const std::string range = fmt::format("{} to {}", least, greatest);
  return CLI::Validator(
      [least, greatest, range](const std::string& text) {
        const auto number = readDouble(text);
        const bool isWithin = number && *number >= least && *number <= greatest;
        return isWithin ? std::string() : fmt::format("\"{}\" is no number from {}", text, range);
      },
      range);
}

}  // namespace tarsil::cli
