#pragma once

#include <string>

namespace tarsil::detail {

/// Path of the watcher program, `libexec/tarsil/tarsil-watcher` in the running program's folder or one above
/// it, else where this library was configured to be installed; empty when there is none. A file that belongs
/// neither to root nor to the owner of the running program is none.
std::string watcherProgram();

}  // namespace tarsil::detail
