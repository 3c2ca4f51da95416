#include "tarsil/guard/detail/Containment.hpp"

#include <string_view>
#include <utility>

namespace tarsil::detail {
namespace {

struct DriverStopped {
  std::string reason;
};

/// Contained calls under way on this thread.
thread_local int depth = 0;

class Depth {
 public:
  Depth() { ++depth; }
  ~Depth() { --depth; }
  Depth(const Depth&) = delete;
  Depth& operator=(const Depth&) = delete;
};

}  // namespace

Containment::Containment() : before_(exchangeProcessHooks({})) {
  ProcessHooks hooks = before_;
  hooks.fatal = [next = before_.fatal](std::string_view reason) {
    if (depth > 0) throw DriverStopped{std::string(reason)};
    if (next) next(reason);
  };
  hooks.neverReturn = [next = before_.neverReturn] {
    if (depth > 0) throw DriverStopped{"it would wait for ever for a reply that it knows"};
    if (next) next();
  };
  exchangeProcessHooks(std::move(hooks));
}

Containment::~Containment() {
  exchangeProcessHooks(std::move(before_));
}

std::optional<std::string> Containment::call(const std::function<void()>& work) {
  const Depth inside;
  try {
    work();
    return std::nullopt;
  } catch (const DriverStopped& stopped) {
    return stopped.reason;
  }
}

}  // namespace tarsil::detail
