#include "tools/tarsil/exerciseModel.hpp"

#include <algorithm>
#include <utility>

#include "tarsil/station/standardCatalogue.hpp"
#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/didYouMean.hpp"

namespace tarsil::cli {

std::vector<DeviceModel> exerciseModels() {
  std::vector<DeviceModel> models = standardCatalogue().models();
  models.erase(
      std::remove_if(models.begin(), models.end(), [](const auto& model) { return !model.exercise; }),
      models.end());
  return models;
}

DeviceModel exerciseModel(const std::string& name) {
  std::vector<std::string> names;
  for (DeviceModel& model : exerciseModels()) {
    if (model.name == name) return std::move(model);
    names.push_back(model.name);
  }
  throw CommandFailure(badInput, "no exercise device is called \"" + name + "\"; see `tarsil devices`" +
                                     didYouMean(name, names));
}

StressDeviceType kindOf(const DeviceModel& model) {
  return model.kind == DeviceKind::treadmill ? StressDeviceType::Treadmill : StressDeviceType::Ergometer;
}

}  // namespace tarsil::cli
