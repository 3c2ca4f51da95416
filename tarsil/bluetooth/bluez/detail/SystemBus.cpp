#include "tarsil/bluetooth/bluez/detail/SystemBus.hpp"

#include <poll.h>

#include <utility>

#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil::bluez {
namespace {

using namespace std::chrono_literals;

// The bus's buffer is full: rare enough not to wait for its descriptor to become writable.
constexpr auto writeRetry = 10ms;

std::optional<BusError> toBusError(const sdbus::Error* error) {
  if (error == nullptr) return std::nullopt;
  return BusError{error->getName(), error->getMessage()};
}

}  // namespace

std::shared_ptr<SystemBus> SystemBus::open(std::function<void()> lost) {
  std::shared_ptr<SystemBus> bus(new SystemBus(std::move(lost)));
  bus->start();
  return bus;
}

SystemBus::SystemBus(std::function<void()> lost)
    : lost_(std::move(lost)), connection_(sdbus::createSystemBusConnection()) {}

SystemBus::~SystemBus() {
  if (timer_) timer_->invalidate();
  if (source_) source_->cancel();
}

void SystemBus::start() {
  source_ = DispatchSource::read(connection_->getEventLoopPollData().fd, DispatchQueue::main());
  source_->setEventHandler([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->process();
  });
  // The descriptor belongs to the connection, which therefore outlives the source.
  source_->setCancelHandler([connection = connection_] {});
  source_->resume();
}

void SystemBus::subscribe(const std::string& rule, SignalReader reader) {
  subscriptions_.push_back(
      connection_->addMatch(rule, [this, reader = std::move(reader)](sdbus::Message& signal) {
        try {
          if (Work work = reader(signal)) post(std::move(work));
        } catch (const sdbus::Error&) {
          // Not what the signal's interface promises: nothing in it can be used.
        }
      }));
}

bool SystemBus::hasService() {
  const auto bus = sdbus::createProxy(*connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus");
  bool owned = false;
  bus->callMethod("NameHasOwner")
      .onInterface("org.freedesktop.DBus")
      .withArguments(std::string(service))
      .storeResultsTo(owned);
  return owned;
}

void SystemBus::call(const std::string& path, const std::string& interface, const std::string& method,
                     std::chrono::seconds timeout, Reply reply,
                     const std::function<void(sdbus::MethodCall&)>& arguments) {
  send(path, interface, method, timeout, arguments,
       [this, reply = std::move(reply)](sdbus::MethodReply&, const sdbus::Error* error) {
         post([reply, failure = toBusError(error)] { reply(failure); });
       });
}

void SystemBus::tell(const std::string& path, const std::string& interface, const std::string& method) {
  if (source_->isCancelled()) return;
  try {
    auto message = proxy(path).createMethodCall(interface, method);
    message.dontExpectReply();
    proxy(path).callMethod(message);
  } catch (const sdbus::Error& error) {
    lose(error.getMessage());
  }
}

void SystemBus::getManagedObjects(ObjectsReply reply) {
  send("/", "org.freedesktop.DBus.ObjectManager", "GetManagedObjects", callTimeout, nullptr,
       [this, reply = std::move(reply)](sdbus::MethodReply& answer, const sdbus::Error* error) {
         Objects objects;
         auto failure = toBusError(error);
         try {
           if (!failure) answer >> objects;
         } catch (const sdbus::Error& unreadable) {
           failure = toBusError(&unreadable);
         }
         post([reply, failure, objects = std::move(objects)] { reply(failure, objects); });
       });
}

void SystemBus::send(const std::string& path, const std::string& interface, const std::string& method,
                     std::chrono::seconds timeout, const std::function<void(sdbus::MethodCall&)>& arguments,
                     sdbus::async_reply_handler reply) {
  if (source_->isCancelled()) return;
  try {
    auto message = proxy(path).createMethodCall(interface, method);
    if (arguments) arguments(message);
    proxy(path).callMethod(message, std::move(reply), timeout);
  } catch (const sdbus::Error& error) {
    return lose(error.getMessage());
  }
  arm();
}

sdbus::IProxy& SystemBus::proxy(const std::string& path) {
  auto& proxy = proxies_[path];
  if (!proxy) proxy = sdbus::createProxy(*connection_, service, path);
  return *proxy;
}

// Work of the main queue, rather than a call from within the bus's own processing: a handler may then run the
// loop itself, drop the bus, or throw.
void SystemBus::post(Work work) {
  DispatchQueue::main().async([weak = weak_from_this(), work = std::move(work)] {
    if (const auto self = weak.lock()) work();
  });
}

void SystemBus::process() {
  try {
    while (connection_->processPendingRequest()) {
    }
  } catch (const sdbus::Error& error) {
    return lose(error.getMessage());
  }
  arm();
}

// What the bus waits for besides its descriptor: the time-outs of calls, messages that it has read already,
// output that did not fit.
void SystemBus::arm() {
  if (timer_) timer_->invalidate();
  timer_ = nullptr;
  if (source_->isCancelled()) return;
  const auto poll = connection_->getEventLoopPollData();
  std::optional<Duration> wait;
  if (const auto timeout = poll.getRelativeTimeout()) wait = *timeout;
  if ((poll.events & POLLOUT) != 0 && (!wait || *wait > writeRetry)) wait = writeRetry;
  if (!wait) return;
  timer_ = Timer::scheduledOn(RunLoop::main(), *wait, false, [weak = weak_from_this()](Timer&) {
    if (const auto self = weak.lock()) self->process();
  });
}

void SystemBus::lose(const std::string& reason) {
  if (source_->isCancelled()) return;
  source_->cancel();
  printLine("Bluetooth: the system bus is lost: " + reason, PrintedText::diagnostic);
  post(lost_);
}

}  // namespace tarsil::bluez
