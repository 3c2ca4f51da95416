#include <iostream>
#include <tarsil/core/StressECGDeviceManager.hpp>

int main() {
  auto& station = tarsil::StressECGDeviceManager::share();
  for (const auto& kind : station.getDeivceType()) {
    const auto devices = station.getDeviceByType(kind);
    for (const auto& device : devices.value()) std::cout << device->name.value() << "\n";
  }
}
