#pragma once

#include <string>
#include <vector>

#include "tarsil/core/KivStressPortDelegate.hpp"
#include "tools/tarsil/replay/Value.hpp"

namespace tarsil::cli {

using HostSelectors = std::vector<KivStressPortDelegate::Selector>;

/// The selector's full name, as an Objective-C host writes it: "onErrorWithCode:details:".
const char* fullName(KivStressPortDelegate::Selector selector);

/// The selectors that a list of full names stands for, none for null. Throws ScriptError for another name.
std::optional<HostSelectors> hostSelectors(const Value& value);
/// Every selector.
HostSelectors allHostSelectors();

}  // namespace tarsil::cli
