#include "tools/tarsil/run/SessionHooks.hpp"

#include <utility>

#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tools/tarsil/run/LibraryStopped.hpp"

namespace tarsil::cli {

SessionHooks::SessionHooks(Journal& journal) : journal_(journal) {
  ProcessHooks hooks;
  // Nobody could catch it on another thread: there the library does what it does by itself.
  hooks.fatal = [](std::string_view reason) {
    if (RunLoop::isMainThread()) throw LibraryStopped(std::string(reason));
  };
  hooks.neverReturn = [] {
    if (RunLoop::isMainThread()) throw LibraryStopped("the driver waits for ever for a reply that it knows");
  };
  hooks.print = [this, alive = alive_](std::string_view text, PrintedText kind) {
    if (RunLoop::isMainThread()) return note(std::string(text), kind);
    DispatchQueue::main().async([this, alive, text = std::string(text), kind] {
      if (*alive) note(text, kind);
    });
  };
  before_ = exchangeProcessHooks(std::move(hooks));
}

SessionHooks::~SessionHooks() {
  *alive_ = false;
  exchangeProcessHooks(std::move(before_));
}

void SessionHooks::note(const std::string& text, PrintedText kind) {
  if (kind == PrintedText::fixed)
    return journal_.note(Role::session, Entry::Kind::event, "printed", {}, text);
  if (text.find(" error ") == std::string::npos) return;
  journal_.note(Role::session, Entry::Kind::failure, "portError", {}, text);
}

}  // namespace tarsil::cli
