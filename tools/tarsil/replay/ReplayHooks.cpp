#include "tools/tarsil/replay/ReplayHooks.hpp"

#include <utility>

#include "tools/tarsil/replay/ProcessStopped.hpp"

namespace tarsil::cli {
namespace {

ProcessHooks hooksFor(Events& events) {
  ProcessHooks hooks;
  hooks.fatal = [&events](std::string_view reason) {
    events.add(Json::array({"fatal", reason}));
    throw ProcessStopped{};
  };
  hooks.neverReturn = [&events] {
    events.add(Json::array({"hang"}));
    throw ProcessStopped{};
  };
  hooks.print = [&events](std::string_view text, PrintedText kind) {
    // Diagnostics are words for people and may read differently tomorrow.
    if (kind == PrintedText::fixed) events.add(Json::array({"stdout", text}));
  };
  return hooks;
}

}  // namespace

ReplayHooks::ReplayHooks(Events& events) : before_(exchangeProcessHooks(hooksFor(events))) {}

ReplayHooks::~ReplayHooks() {
  exchangeProcessHooks(std::move(before_));
}

}  // namespace tarsil::cli
