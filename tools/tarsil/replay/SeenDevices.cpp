#include "tools/tarsil/replay/SeenDevices.hpp"

#include <algorithm>

namespace tarsil::cli {

Json SeenDevices::json(const std::shared_ptr<KivStressDevice>& device) {
  if (!device) return nullptr;
  auto seen = std::find(devices_.begin(), devices_.end(), device);
  if (seen == devices_.end()) seen = devices_.insert(seen, device);
  return {{"name", textOrNull(device->name)}, {"obj", seen - devices_.begin() + 1}};
}

Json SeenDevices::json(const std::optional<std::vector<std::shared_ptr<KivStressDevice>>>& devices) {
  if (!devices) return nullptr;
  Json list = Json::array();
  for (const auto& device : *devices) list.push_back(json(device));
  return list;
}

}  // namespace tarsil::cli
