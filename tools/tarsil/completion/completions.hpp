#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace tarsil::cli {

/// What may stand at the end of these words of a command line, after the program's name; the last one is
/// being typed and may be empty. Nothing where a file is meant, or anything: the shell's own completion may
/// help.
std::vector<std::string> completions(const CLI::App& program, const std::vector<std::string>& words);

}  // namespace tarsil::cli
