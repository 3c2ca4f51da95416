#pragma once

namespace tarsil::cli {

/// Thrown out of library code where the process would stop, or its thread never return.
struct ProcessStopped {};

}  // namespace tarsil::cli
