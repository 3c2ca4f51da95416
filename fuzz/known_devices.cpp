// Adapters that come, go and change places: whoever follows the news sees what is there, each device once.

#include "tarsil/platform/linux/KnownDevices.hpp"

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/expect.hpp"

using namespace tarsil;

namespace {

using Present = std::map<std::string, std::optional<UsbIdentity>>;

/// One of a few devices at one of a few places.
FoundDevice deviceOf(unsigned choice) {
  SerialDevice device{.calloutPath = "/dev/ttyUSB" + std::to_string(choice / 3 % 4)};
  if (choice % 3 != 0) device.usb = UsbIdentity{.serialNumber = std::to_string(choice % 3)};
  return {*device.calloutPath, std::make_shared<SerialDevice>(device)};
}

/// Hears the news as a host does.
class Follower {
 public:
  void hear(const KnownDevices::News& news) {
    for (const auto& device : news.removed) {
      const auto found = std::find(seen_.begin(), seen_.end(), device);
      expect(found != seen_.end());
      seen_.erase(found);
    }
    for (const auto& device : news.arrived) seen_.push_back(device);
  }

  Present sees() const {
    Present present;
    for (const auto& device : seen_) expect(present.emplace(*device->calloutPath, device->usb).second);
    return present;
  }

 private:
  SerialDeviceRegistry::Devices seen_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  KnownDevices known({});
  Follower follower;
  Present truth;
  for (std::size_t at = 0; at < size; ++at) {
    const FoundDevice device = deviceOf(data[at] / 3U);
    if (data[at] % 3 == 0) {
      follower.hear(known.add(device));
      truth[device.systemPath] = device.device->usb;
    } else if (data[at] % 3 == 1) {
      follower.hear(known.remove(device.systemPath));
      truth.erase(device.systemPath);
    } else {
      truth.clear();
      std::vector<FoundDevice> all;
      for (std::size_t count = data[at] / 3U % 5; count > 0 && at + 1 < size; --count) {
        // A system names a place once.
        const FoundDevice present = deviceOf(data[++at]);
        if (truth.emplace(present.systemPath, present.device->usb).second) all.push_back(present);
      }
      follower.hear(known.replace(all));
    }
    expect(follower.sees() == truth);
  }
  return 0;
}
