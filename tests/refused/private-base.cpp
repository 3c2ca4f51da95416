#include <tarsil/core/StressECGDeviceManager.hpp>

class Host : tarsil::KivStressPortDelegate {};

void handOver(tarsil::StressECGDeviceManager& station) {
  station.delegate = std::make_shared<Host>();
}
