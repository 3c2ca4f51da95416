#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "tarsil/support/bytes.hpp"

namespace tarsil::cli {

using Json = nlohmann::json;

/// A float as events carry it: the number that its shortest decimal text names, or "nan", "inf", "-inf".
Json number(float value);
/// Lower-case hexadecimal text.
Json hexadecimal(ByteView bytes);
/// Null for none.
Json textOrNull(const std::optional<std::string>& text);

}  // namespace tarsil::cli
