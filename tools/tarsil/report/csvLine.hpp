#pragma once

#include <string>
#include <string_view>

#include "tarsil/core/StressDeviceType.hpp"
#include "tarsil/guard/Event.hpp"

namespace tarsil::cli {

/// The first line of session.csv.
inline constexpr std::string_view csvHeader = "time_s,role,kind,what,value1,value2,value3,text\n";

/// An event as a line of session.csv: seconds since the session began, values in the shortest form that reads
/// back as the same number, bytes as hexadecimal text. `kind` is the exercise device's.
std::string csvLine(const Event& event, Duration at, StressDeviceType kind);

}  // namespace tarsil::cli
