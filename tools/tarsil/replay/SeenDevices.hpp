#pragma once

#include <memory>
#include <vector>

#include "tarsil/core/KivStressDevice.hpp"
#include "tools/tarsil/replay/Json.hpp"

namespace tarsil::cli {

/// The devices that a host has been handed, numbered from 1 in the order in which it first saw them.
class SeenDevices {
 public:
  /// {"name":...,"obj":k}; null for no device.
  Json json(const std::shared_ptr<KivStressDevice>& device);
  /// A list of these; null for no list.
  Json json(const std::optional<std::vector<std::shared_ptr<KivStressDevice>>>& devices);

 private:
  std::vector<std::shared_ptr<KivStressDevice>> devices_;
};

}  // namespace tarsil::cli
