#include <tarsil/core/StressECGDeviceManager.hpp>

struct Host : tarsil::KivStressPortDelegate {};

void handOver(tarsil::StressECGDeviceManager& station) {
  station.delegate = new Host;
}
