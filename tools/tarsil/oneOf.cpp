#include "tools/tarsil/oneOf.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "tools/tarsil/didYouMean.hpp"

namespace tarsil::cli {

CLI::Validator oneOf(const std::vector<std::string>& words) {
  return CLI::Validator(
      [words](const std::string& word) {
        const bool isKnown = std::find(words.begin(), words.end(), word) != words.end();
        if (isKnown) return std::string();
        return fmt::format("\"{}\" is none of {}{}", word, fmt::join(words, ", "), didYouMean(word, words));
      },
      fmt::format("{{{}}}", fmt::join(words, ",")));
}

}  // namespace tarsil::cli
