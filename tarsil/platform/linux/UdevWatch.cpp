#include "tarsil/platform/linux/UdevWatch.hpp"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string_view>
#include <utility>

#include "tarsil/platform/linux/udevScan.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/detail/RunLoopImplementation.hpp"

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

class UdevWatch::KernelEar final : public detail::Watcher {
 public:
  KernelEar(UdevWatch& owner, UdevMonitor monitor)
      : owner_(owner), monitor_(std::move(monitor)), descriptor_(udev_monitor_get_fd(monitor_.get())) {}

  void listen(const std::shared_ptr<KernelEar>& self) {
    watch_ = owner_.loop_->watch(descriptor_, self, detail::Reactor::Writer::machine);
  }

  void ready() override {
    while (UdevDevice(udev_monitor_receive_device(monitor_.get())) || errno == ENOBUFS) {
    }
    if (owner_.ended_) return;
    owner_.lookAroundSoon();
    if (watch_) owner_.loop_->rearm(*watch_);
  }

  void end() {
    if (watch_) owner_.loop_->unwatch(*watch_);
  }

 private:
  UdevWatch& owner_;
  const UdevMonitor monitor_;
  const int descriptor_;
  std::optional<detail::Reactor::WatchId> watch_;
};

std::shared_ptr<UdevWatch> UdevWatch::begin(SerialDeviceRegistry::Watcher watcher) {
  UdevContext context(udev_new());
  if (!context) return nullptr;
  UdevMonitor monitor = monitorOf(context.get(), newsSource());
  if (!monitor) return nullptr;
  auto watch = std::make_shared<UdevWatch>(std::move(context), std::move(monitor), std::move(watcher));
  watch->watch_ = watch->loop_->watch(watch->descriptor_, watch, detail::Reactor::Writer::machine);
  watch->listenToTheKernel();
  return watch;
}

// Listens before it looks, so that nothing slips through between the two.
UdevWatch::UdevWatch(UdevContext context, UdevMonitor monitor, SerialDeviceRegistry::Watcher watcher)
    : context_(std::move(context)),
      monitor_(std::move(monitor)),
      descriptor_(udev_monitor_get_fd(monitor_.get())),
      watcher_(std::move(watcher)),
      loop_(RunLoop::current().implementation().reactor()),
      known_(scanSerialPorts(context_.get())) {}

void UdevWatch::ready() {
  try {
    takeNews();
  } catch (...) {
    listenOn();
    throw;
  }
  listenOn();
}

void UdevWatch::listenOn() {
  if (!ended_ && watch_) loop_->rearm(*watch_);
}

void UdevWatch::end() {
  ended_ = true;
  if (watch_) loop_->unwatch(*watch_);
  if (kernelEar_) kernelEar_->end();
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
  UdevMonitor monitor = monitorOf(context_.get(), "kernel");
  if (!monitor) return;
  kernelEar_ = std::make_shared<KernelEar>(*this, std::move(monitor));
  kernelEar_->listen(kernelEar_);
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
