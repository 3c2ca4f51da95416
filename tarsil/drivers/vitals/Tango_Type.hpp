#pragma once

#include <optional>
#include <string_view>

namespace tarsil {

/// What a Tango monitor was last told.
enum class Tango_Type { normal, INIT, START, BREAK, LAST, FINISH, CLEAR, SPO2 };

/// "", "init", "start", "break", "last", "finish", "clear" or "SPO2".
std::string_view rawValue(Tango_Type type);

/// None for every text that is not exactly a raw value.
std::optional<Tango_Type> tangoTypeFromRawValue(std::string_view rawValue);

}  // namespace tarsil
