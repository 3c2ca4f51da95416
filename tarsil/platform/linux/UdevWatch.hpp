#pragma once

#include <memory>

#include "tarsil/platform/SerialDeviceRegistry.hpp"
#include "tarsil/platform/linux/KnownDevices.hpp"
#include "tarsil/platform/linux/udevScan.hpp"
#include "tarsil/runtime/Observation.hpp"
#include "tarsil/runtime/Timer.hpp"

namespace tarsil {

/// One watcher's ear on the system's news, on the run loop of the thread that made it. News come from the
/// udev daemon, when it has prepared the device, or straight from the kernel where no daemon runs. A daemon
/// may run whose word does not get through, as into a container: so what the kernel says is followed by a
/// look around, two seconds later, which tells what went unheard.
class UdevWatch final : public std::enable_shared_from_this<UdevWatch> {
 public:
  /// Null where the system gives no news (a container without the right to listen).
  static std::shared_ptr<UdevWatch> begin(SerialDeviceRegistry::Watcher watcher);

  UdevWatch(UdevContext context, UdevMonitor monitor, SerialDeviceRegistry::Watcher watcher);

  void end();

 private:
  void listenToTheKernel();
  void hearTheKernel();
  void takeNews();
  void lookAroundSoon();
  void lookAround();
  void heed(udev_device* terminal);
  void tell(const KnownDevices::News& news) const;

  const UdevContext context_;
  const UdevMonitor monitor_;
  const int descriptor_;
  const SerialDeviceRegistry::Watcher watcher_;
  /// Hears that the kernel has news, whatever they are; null where it says nothing.
  UdevMonitor kernelMonitor_;
  /// Null while no look around is due.
  std::shared_ptr<Timer> soon_;
  bool ended_ = false;
  KnownDevices known_;
  Observation news_;
  Observation kernelNews_;
};

}  // namespace tarsil
