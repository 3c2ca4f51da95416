#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace tarsil::cli {

/// What is wrong with the command line, in the program's own words. `program` has read it as far as it could.
std::string parseErrorText(const CLI::ParseError& error, const CLI::App& program);

}  // namespace tarsil::cli
