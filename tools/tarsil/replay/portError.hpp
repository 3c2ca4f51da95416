#pragma once

#include <string>

#include "tarsil/support/Error.hpp"
#include "tools/tarsil/replay/Operation.hpp"

namespace tarsil::cli {

/// The error that a port at `path` reports in an "error" operation: its "code" is an errno, EIO without one.
Error portError(const Operation& operation, const std::string& path);

}  // namespace tarsil::cli
