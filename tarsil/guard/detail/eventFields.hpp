#pragma once

#include <optional>
#include <string_view>

#include "tarsil/guard/Event.hpp"
#include "tarsil/guard/detail/FlatJson.hpp"

namespace tarsil::detail {

/// Adds the event's word and its fields.
void writeFields(const Event::What& what, FlatJsonWriter& writer);

/// An event from its line; none when the line is no event with all its fields.
std::optional<Event> readEvent(std::string_view line);

}  // namespace tarsil::detail
