#include "tools/tarsil/replay/Subject.hpp"

#include "tools/tarsil/replay/ScriptError.hpp"

namespace tarsil::cli {

void refuse(const Operation& operation, const std::string& subject) {
  throw ScriptError(subject + " has no operation \"" + operation.name() + '"');
}

}  // namespace tarsil::cli
