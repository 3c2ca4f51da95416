#pragma once

#include <string_view>

namespace tarsil::detail {

/// Passes on the result of a system call that fails only when the system is out of descriptors or memory, or
/// through a fault in this process. A negative result stops the process: "<what>: <the system's text for
/// errno>".
int succeeded(int result, std::string_view what);

}  // namespace tarsil::detail
