#include "tools/tarsil/replay/Events.hpp"

namespace tarsil::cli {

void Events::add(const Json& event) {
  if (muted_) return;
  // The source adds its events through this function, too.
  if (const auto before = std::exchange(before_, nullptr)) {
    before();
    before_ = before;
  }
  listener_(event);
}

}  // namespace tarsil::cli
