#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/bluetooth/bluez/detail/properties.hpp"
#include "tarsil/runtime/DispatchSource.hpp"
#include "tarsil/runtime/Timer.hpp"

namespace tarsil::bluez {

/// A failed call, as the bus names it.
struct BusError {
  std::string name;
  std::string message;
};

/// BlueZ answers within moments; only an attempt to connect takes longer.
constexpr auto callTimeout = std::chrono::seconds(20);

/// A connection to the system bus, served by the main run loop. Every handler runs as work of the main queue,
/// never from within a call to this object, so it may do what it likes, drop the connection included. Main
/// thread.
class SystemBus : public std::enable_shared_from_this<SystemBus> {
 public:
  using Reply = std::function<void(const std::optional<BusError>& error)>;
  using ObjectsReply = std::function<void(const std::optional<BusError>& error, const Objects& objects)>;
  /// Takes what it needs from the message while the message is at hand, and leaves the work that it makes.
  using SignalReader = std::function<Work(sdbus::Message& signal)>;

  /// BlueZ's name on the bus.
  static constexpr const char* service = "org.bluez";

  /// Waits for the bus's greeting. Throws sdbus::Error when there is no bus.
  static std::shared_ptr<SystemBus> open(std::function<void()> lost);
  ~SystemBus();
  SystemBus(const SystemBus&) = delete;
  SystemBus& operator=(const SystemBus&) = delete;

  /// Waits for the bus to take the rule; to be called before anything else. Throws sdbus::Error.
  void subscribe(const std::string& rule, SignalReader reader);
  /// Whether BlueZ is on the bus. Waits for the bus's answer; to be called after `subscribe`, before anything
  /// else. Throws sdbus::Error.
  bool hasService();

  /// Calls a method of one of BlueZ's objects; `arguments` appends them to the call. Without an answer in
  /// time the error is a bus's own. After `forget`, or when the connection is lost, the reply never comes.
  void call(const std::string& path, const std::string& interface, const std::string& method,
            std::chrono::seconds timeout, Reply reply,
            const std::function<void(sdbus::MethodCall&)>& arguments = nullptr);
  /// Calls a method without arguments whose answer nobody wants.
  void tell(const std::string& path, const std::string& interface, const std::string& method);
  /// Asks BlueZ for all its objects.
  void getManagedObjects(ObjectsReply reply);
  /// The object at this path is gone: nobody waits for its answers any more.
  void forget(const std::string& path) { proxies_.erase(path); }
  void forgetAll() { proxies_.clear(); }

 private:
  explicit SystemBus(std::function<void()> lost);
  void start();
  void send(const std::string& path, const std::string& interface, const std::string& method,
            std::chrono::seconds timeout, const std::function<void(sdbus::MethodCall&)>& arguments,
            sdbus::async_reply_handler reply);
  sdbus::IProxy& proxy(const std::string& path);
  void post(Work work);
  void process();
  void arm();
  void lose(const std::string& reason);

  std::function<void()> lost_;
  std::shared_ptr<sdbus::IConnection> connection_;
  std::vector<sdbus::Slot> subscriptions_;
  std::map<std::string, std::unique_ptr<sdbus::IProxy>> proxies_;
  std::shared_ptr<DispatchSource> source_;
  std::shared_ptr<Timer> timer_;
};

}  // namespace tarsil::bluez
