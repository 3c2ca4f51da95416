#pragma once

#include <string>

#include "tools/tarsil/report/SessionRecord.hpp"

namespace tarsil::cli {

/// report.html: what a session did, as one page without anything from outside, to read and to print.
std::string reportPage(const SessionRecord& record);

}  // namespace tarsil::cli
