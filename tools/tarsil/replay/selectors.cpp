#include "tools/tarsil/replay/selectors.hpp"

#include <algorithm>
#include <array>
#include <utility>

#include "tools/tarsil/replay/ScriptError.hpp"

namespace tarsil::cli {
namespace {

using enum KivStressPortDelegate::Selector;
using Named = std::pair<KivStressPortDelegate::Selector, const char*>;

constexpr std::array names{
    Named{onReceivedTreadmillLoadWithSpeed, "onReceivedTreadmillLoadWithSpeed:grade:"},
    Named{onReceivedErgometerPowerWithPower, "onReceivedErgometerPowerWithPower:"},
    Named{onReceivedErgometerRpmWithRpm, "onReceivedErgometerRpmWithRpm:"},
    Named{onReceivedBPWithSysBP, "onReceivedBPWithSysBP:diaBP:status:"},
    Named{onReceivedSpO2WithSpO2, "onReceivedSpO2WithSpO2:status:"},
    Named{onStressDevicesListWithDeviceList, "onStressDevicesListWithDeviceList:"},
    Named{portWasOpened, "portWasOpened"},
    Named{portWasRemovedFromSystem, "portWasRemovedFromSystem"},
    Named{onErrorWithCode, "onErrorWithCode:details:"},
    Named{successfully, "successfully"},
    Named{deviceIsReadyWithIsReady, "deviceIsReadyWithIsReady:"},
};

KivStressPortDelegate::Selector selectorNamed(const std::string& name) {
  for (const auto& [selector, text] : names) {
    if (name == text) return selector;
  }
  throw ScriptError("a host has no selector \"" + name + '"');
}

}  // namespace

const char* fullName(KivStressPortDelegate::Selector selector) {
  return std::find_if(names.begin(), names.end(),
                      [selector](const Named& named) { return named.first == selector; })
      ->second;
}

std::optional<HostSelectors> hostSelectors(const Value& value) {
  if (value.isNull()) return std::nullopt;
  HostSelectors selectors;
  for (const auto& name : value.texts()) selectors.push_back(selectorNamed(name));
  return selectors;
}

HostSelectors allHostSelectors() {
  HostSelectors selectors;
  for (const auto& named : names) selectors.push_back(named.first);
  return selectors;
}

}  // namespace tarsil::cli
