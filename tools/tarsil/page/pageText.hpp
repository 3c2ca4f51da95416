#pragma once

#include <string_view>

namespace tarsil::cli {

/// The live page, HTML that fetches nothing but its events. No text of a session is in it.
std::string_view pageText();

}  // namespace tarsil::cli
