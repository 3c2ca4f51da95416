#pragma once

#include <stdexcept>

namespace tarsil::cli {

/// Why an operation of a script cannot be read.
struct ScriptError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace tarsil::cli
