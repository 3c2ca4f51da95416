#pragma once

#include <variant>
#include <vector>

#include "tarsil/guard/Event.hpp"

namespace tarsil {

/// Those of one kind, in their order.
template <class What>
std::vector<What> eventsOf(const std::vector<Event>& events) {
  std::vector<What> found;
  for (const Event& event : events) {
    if (const auto* what = std::get_if<What>(&event.what)) found.push_back(*what);
  }
  return found;
}

}  // namespace tarsil
