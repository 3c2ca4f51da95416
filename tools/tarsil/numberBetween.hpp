#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace tarsil::cli {

/// Takes a number from `least` to `greatest`, both included, and nothing that is no number, "nan" included.
CLI::Validator numberBetween(double least, double greatest);

}  // namespace tarsil::cli
