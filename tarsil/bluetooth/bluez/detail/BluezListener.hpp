#pragma once

#include <string>
#include <vector>

#include "tarsil/bluetooth/bluez/detail/Lifeline.hpp"
#include "tarsil/bluetooth/bluez/detail/SystemBus.hpp"
#include "tarsil/bluetooth/bluez/detail/properties.hpp"

namespace tarsil::bluez {

/// Hears BlueZ's signals, read from the bus. Every call is work of the main queue.
class BluezListener {
 public:
  virtual ~BluezListener() = default;

  /// Subscribes to the signals; waits for the bus to take it. They are heard while the life lasts. Throws
  /// sdbus::Error.
  void listen(SystemBus& bus, const Lifeline& life);

 protected:
  virtual void daemonAppeared() = 0;
  virtual void daemonVanished() = 0;
  /// An object is new, or has new interfaces.
  virtual void added(const std::string& path, const Interfaces& interfaces) = 0;
  /// Properties of an object have new values, or (`invalidated`) none any more.
  virtual void changed(const std::string& path, const std::string& interface, const Properties& properties,
                       const std::vector<std::string>& invalidated) = 0;
  /// An object has lost these interfaces: all of them when it is gone.
  virtual void removed(const std::string& path, const std::vector<std::string>& interfaces) = 0;
  /// Why the connection of the device at this path is about to end. Newer versions of BlueZ only.
  virtual void reasonTold(const std::string& path, const std::string& reason, const std::string& text) = 0;

 private:
  void listenToDaemon(SystemBus& bus, const Lifeline& life);
  void listenToObjects(SystemBus& bus, const Lifeline& life);
  void listenToProperties(SystemBus& bus, const Lifeline& life);
  void listenToReasons(SystemBus& bus, const Lifeline& life);
};

}  // namespace tarsil::bluez
