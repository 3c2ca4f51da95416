#include "tools/bluetooth/hostCentral.hpp"

#include <filesystem>
#include <system_error>
#include <utility>

#include "simulators/devices/SimulatedCentral.hpp"
#ifdef TARSIL_HAS_BLUEZ
#include "tarsil/bluetooth/bluez/makeBluezCentral.hpp"
#endif

namespace tarsil::cli {
namespace {

#ifdef TARSIL_HAS_BLUEZ
bool hasAdapter() {
  std::error_code noFolder;
  const std::filesystem::directory_iterator adapters("/sys/class/bluetooth", noFolder);
  return !noFolder && begin(adapters) != end(adapters);
}
#endif

}  // namespace

HostCentral hostCentral(std::function<std::uint8_t()> saturation) {
#ifdef TARSIL_HAS_BLUEZ
  if (hasAdapter()) return {makeBluezCentral(), false};
#endif
  return simulatedCentral(std::move(saturation));
}

HostCentral simulatedCentral(std::function<std::uint8_t()> saturation) {
  return {simulators::SimulatedCentral::create(std::move(saturation)), true};
}

}  // namespace tarsil::cli
