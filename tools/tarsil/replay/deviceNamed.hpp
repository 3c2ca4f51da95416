#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tarsil/core/KivStressDevice.hpp"

namespace tarsil::cli {

/// A new device of the driver class or the catalogue model of that name, as the catalogue makes it ("Tango"
/// and "MEDXING-SpO2" have no name there); null for any other name.
std::shared_ptr<KivStressDevice> deviceNamed(const std::string& name);

/// All names that `deviceNamed` knows, class names first.
std::vector<std::string> deviceNames();

}  // namespace tarsil::cli
