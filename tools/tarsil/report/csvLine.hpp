#pragma once

#include <string>
#include <string_view>

#include "tools/tarsil/run/Journal.hpp"
#include "tools/tarsil/run/Traffic.hpp"

namespace tarsil::cli {

/// The first line of session.csv.
inline constexpr std::string_view csvHeader = "time_s,role,kind,what,value1,value2,value3,text\n";

/// A journal entry as a line of session.csv: seconds since the session began, values in the shortest form
/// that reads back as the same number.
std::string csvLine(const Entry& entry);

/// Bytes on a line, as hexadecimal text. `at` is the time since the session began.
std::string csvLine(const Chunk& chunk, Duration at, Role role);

}  // namespace tarsil::cli
