#pragma once

#include <string>
#include <vector>

namespace tarsil::cli {

/// "; did you mean "bruce"?" when one of the known words is what somebody may have meant, whatever the case
/// of its letters; empty when none is near.
std::string didYouMean(const std::string& word, const std::vector<std::string>& known);

}  // namespace tarsil::cli
