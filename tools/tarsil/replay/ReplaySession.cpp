#include "tools/tarsil/replay/ReplaySession.hpp"

#include <stdexcept>

#include "tools/tarsil/replay/ScriptError.hpp"
#include "tools/tarsil/replay/codec.hpp"

namespace tarsil::cli {

void ReplaySession::perform(const Operation& operation) {
  try {
    if (operation.name() == "codec") return events_.add(Json::array({"return", codecResult(operation)}));
    throw ScriptError("there is no operation \"" + operation.name() + '"');
  } catch (const std::out_of_range&) {
    events_.add(Json::array({"exception", "range"}));
  }
}

}  // namespace tarsil::cli
