#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "simulators/lines/CableBehaviour.hpp"

namespace tarsil::cli {

/// Declares --cable, whose words are stored in `words`.
void addCableOption(CLI::App& command, std::string& words);

/// What the words mean. Throws CommandFailure for what is not understood.
simulators::CableBehaviour cableBehaviour(const std::string& words);

}  // namespace tarsil::cli
