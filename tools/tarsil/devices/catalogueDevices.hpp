#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tarsil/core/KivStressDevice.hpp"

namespace tarsil::cli {

/// A model that the library drives.
struct CatalogueDevice {
  /// "Treadmill", "Ergometer", "BP" or "SpO2".
  std::string kind;
  std::shared_ptr<KivStressDevice> device;
};

/// Every model: what the facade offers, in its order, then the monitor and the oximeter that it does not
/// list.
std::vector<CatalogueDevice> catalogueDevices();

}  // namespace tarsil::cli
