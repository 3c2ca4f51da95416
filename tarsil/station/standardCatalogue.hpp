#pragma once

#include "tarsil/core/DeviceCatalogue.hpp"

namespace tarsil {

/// Every model that the library drives, with its line settings and what it can do. Makes no device; any
/// thread.
DeviceCatalogue standardCatalogue();

}  // namespace tarsil
