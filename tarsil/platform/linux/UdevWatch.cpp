#include "tarsil/platform/linux/UdevWatch.hpp"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string_view>
#include <utility>

#include "tarsil/platform/linux/udevScan.hpp"
#include "tarsil/runtime/RunLoop.hpp"

namespace tarsil {
namespace {

// The daemon is there as long as its control socket is.
const char* newsSource() {
  return access("/run/udev/control", F_OK) == 0 ? "udev" : "kernel";
}

// Long enough for a daemon to prepare a device.
constexpr auto soon = std::chrono::seconds(2);

// Null where the system gives no news.
UdevMonitor monitorOf(udev* context, const char* source) {
  UdevMonitor monitor(udev_monitor_new_from_netlink(context, source));
  if (!monitor || udev_monitor_filter_add_match_subsystem_devtype(monitor.get(), "tty", nullptr) < 0 ||
      udev_monitor_enable_receiving(monitor.get()) < 0) {
    return nullptr;
  }
  return monitor;
}

}  // namespace

std::shared_ptr<UdevWatch> UdevWatch::begin(SerialDeviceRegistry::Watcher watcher) {
  UdevContext context(udev_new());
  if (!context) return nullptr;
  UdevMonitor monitor = monitorOf(context.get(), newsSource());
  if (!monitor) return nullptr;
  auto watch = std::make_shared<UdevWatch>(std::move(context), std::move(monitor), std::move(watcher));
  watch->news_ = RunLoop::current().watch(watch->descriptor_, [weak = watch->weak_from_this()] {
    if (const auto self = weak.lock()) self->takeNews();
  });
  watch->listenToTheKernel();
  return watch;
}

// Listens before it looks, so that nothing slips through between the two.
UdevWatch::UdevWatch(UdevContext context, UdevMonitor monitor, SerialDeviceRegistry::Watcher watcher)
    : context_(std::move(context)),
      monitor_(std::move(monitor)),
      descriptor_(udev_monitor_get_fd(monitor_.get())),
      watcher_(std::move(watcher)),
      known_(scanSerialPorts(context_.get())) {}

void UdevWatch::end() {
  ended_ = true;
  news_.reset();
  kernelNews_.reset();
  if (soon_) soon_->invalidate();
}

void UdevWatch::takeNews() {
  // When news came faster than they were taken, the system drops some (ENOBUFS). What is left in the queue is
  // older than what a look around shows, so it is thrown away.
  bool lostSome = false;
  while (!ended_) {
    const UdevDevice terminal(udev_monitor_receive_device(monitor_.get()));
    if (terminal) {
      if (!lostSome) heed(terminal.get());
    } else if (errno == ENOBUFS) {
      lostSome = true;
    } else {
      break;
    }
  }
  if (lostSome) lookAround();
}

void UdevWatch::listenToTheKernel() {
  kernelMonitor_ = monitorOf(context_.get(), "kernel");
  if (!kernelMonitor_) return;
  const int descriptor = udev_monitor_get_fd(kernelMonitor_.get());
  kernelNews_ = RunLoop::current().watch(descriptor, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->hearTheKernel();
  });
}

void UdevWatch::hearTheKernel() {
  while (UdevDevice(udev_monitor_receive_device(kernelMonitor_.get())) || errno == ENOBUFS) {
  }
  if (!ended_) lookAroundSoon();
}

void UdevWatch::lookAroundSoon() {
  if (soon_) soon_->invalidate();
  soon_ = Timer::scheduled(soon, false, [weak = weak_from_this()](Timer&) {
    if (const auto self = weak.lock()) self->lookAround();
  });
}

void UdevWatch::lookAround() {
  if (!ended_) tell(known_.replace(scanSerialPorts(context_.get())));
}

void UdevWatch::heed(udev_device* terminal) {
  const char* action = udev_device_get_action(terminal);
  if (action == nullptr) return;
  if (std::string_view(action) == "remove") return tell(known_.remove(udev_device_get_syspath(terminal)));
  if (std::string_view(action) != "add") return;
  if (auto port = serialPortOf(terminal)) tell(known_.add(*std::move(port)));
}

void UdevWatch::tell(const KnownDevices::News& news) const {
  if (!ended_ && !news.removed.empty() && watcher_.removed) watcher_.removed(news.removed);
  if (!ended_ && !news.arrived.empty() && watcher_.arrived) watcher_.arrived(news.arrived);
}

}  // namespace tarsil
