#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace tarsil::cli {

/// Takes one of these words and nothing else.
CLI::Validator oneOf(const std::vector<std::string>& words);

}  // namespace tarsil::cli
