#pragma once

#include <chrono>
#include <string>

#include "tools/tarsil/exitCodes.hpp"
#include "tools/tarsil/report/SessionRecord.hpp"
#include "tools/tarsil/run/ModelTraits.hpp"

namespace tarsil::cli {

/// report.html: one page that needs nothing else, for the screen and for paper.
std::string reportPage(const SessionRecord& record, const ModelTraits& traits,
                       std::chrono::system_clock::time_point began, ExitCode result);

}  // namespace tarsil::cli
