#include "tools/tarsil/replay/deviceOperations.hpp"

#include <functional>
#include <utility>

namespace tarsil::cli {
namespace {

using Arguments = std::vector<Value>;
using Call = std::function<void(KivStressDevice&, const Arguments&)>;

struct DeviceOperation {
  const char* name;
  std::size_t arguments;
  Call call;
};

DeviceOperation plain(const char* name, void (KivStressDevice::*operation)()) {
  return {name, 0, [operation](KivStressDevice& device, const Arguments&) { (device.*operation)(); }};
}

const std::vector<DeviceOperation>& all() {
  using Device = KivStressDevice;
  static const std::vector<DeviceOperation> operations{
      {"setDeviceFunction", 2,
       [](Device& device, const Arguments& values) {
         device.setDeviceFunction(values[0].flag(), values[1].flag());
       }},
      {"setLoad", 2,
       [](Device& device, const Arguments& values) {
         device.setLoad(values[0].number(), values[1].number());
       }},
      plain("requestLoad", &Device::requestLoad),
      plain("startDeivce", &Device::startDeivce),
      plain("stopStressDevice", &Device::stopStressDevice),
      plain("startBP", &Device::startBP),
      plain("breakBP", &Device::breakBP),
      plain("requestBP", &Device::requestBP),
      plain("clearBP", &Device::clearBP),
      plain("startSpO2", &Device::startSpO2),
      plain("stopSpO2", &Device::stopSpO2),
      plain("requestSpO2", &Device::requestSpO2),
      plain("emergencyStop", &Device::emergencyStop),
      plain("emergencyStopRecover", &Device::emergencyStopRecover),
      plain("requestStatus", &Device::requestStatus),
      plain("deviceState", &Device::deviceState),
  };
  return operations;
}

}  // namespace

std::vector<std::string> deviceOperations() {
  std::vector<std::string> names;
  for (const auto& operation : all()) names.emplace_back(operation.name);
  return names;
}

bool performDeviceOperation(KivStressDevice& device, const Operation& operation) {
  for (const auto& known : all()) {
    if (operation.name() != known.name) continue;
    known.call(device, operation.arguments(known.arguments));
    return true;
  }
  return false;
}

}  // namespace tarsil::cli
