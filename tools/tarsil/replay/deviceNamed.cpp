#include "tools/tarsil/replay/deviceNamed.hpp"

#include <algorithm>
#include <functional>
#include <utility>

#include "tarsil/drivers/vitals/SpO2Device.hpp"
#include "tarsil/station/standardCatalogue.hpp"

namespace tarsil::cli {
namespace {

using Device = std::shared_ptr<KivStressDevice>;
using NamedFactory = std::pair<std::string, std::function<Device()>>;

Device plainDevice() {
  return std::make_shared<KivStressDevice>();
}

/// No manager offers one, so the catalogue has none.
Device oximeterOfAnyMake() {
  return std::make_shared<SpO2Device>(
      SpO2DeviceSettings{.SpO2 = "SpO2Device", .baud = 9600, .databits = 8, .stopbits = 1, .parity = 0});
}

/// The driver classes first, then what people call their models.
std::vector<NamedFactory> factories() {
  const auto models = standardCatalogue().models();
  std::vector<NamedFactory> all;
  for (const auto& model : models) all.emplace_back(model.className, model.makeDevice);
  all.emplace_back("KivStressDevice", plainDevice);
  all.emplace_back("SpO2Device", oximeterOfAnyMake);
  for (const auto& model : models) {
    const bool isNew = std::none_of(all.begin(), all.end(),
                                    [&](const NamedFactory& known) { return known.first == model.name; });
    if (isNew) all.emplace_back(model.name, model.makeDevice);
  }
  return all;
}

}  // namespace

std::shared_ptr<KivStressDevice> deviceNamed(const std::string& name) {
  for (const auto& [known, make] : factories()) {
    if (name == known) return make();
  }
  return nullptr;
}

std::vector<std::string> deviceNames() {
  std::vector<std::string> names;
  for (const auto& [name, make] : factories()) names.push_back(name);
  return names;
}

}  // namespace tarsil::cli
