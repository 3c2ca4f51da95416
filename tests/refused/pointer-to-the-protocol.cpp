#include <tarsil/core/StressECGDeviceManager.hpp>

struct Host : tarsil::KivStressPortDelegate {};

void handOver(tarsil::StressECGDeviceManager& station) {
  const std::shared_ptr<tarsil::KivStressPortDelegate> host = std::make_shared<Host>();
  station.delegate = host;
}
