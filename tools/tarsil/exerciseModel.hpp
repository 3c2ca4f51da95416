#pragma once

#include <string>
#include <vector>

#include "tarsil/core/DeviceModel.hpp"
#include "tarsil/core/StressDeviceType.hpp"

namespace tarsil::cli {

/// The treadmill or ergometer of that name. Throws CommandFailure, with the name that may have been meant,
/// when there is none.
DeviceModel exerciseModel(const std::string& name);

StressDeviceType kindOf(const DeviceModel& model);

/// Every treadmill and ergometer, in the catalogue's order.
std::vector<DeviceModel> exerciseModels();

}  // namespace tarsil::cli
