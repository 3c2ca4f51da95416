#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "tarsil/runtime/NotificationCenter.hpp"
#include "tarsil/runtime/Observable.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"

namespace tarsil {

/// Knows which serial ports the machine has, and follows devices as they come and go.
///
/// Make it (first use of `sharedSerialPortManager()`) on the main thread: notifications are posted, and the
/// list changes, on the run loop of the thread that made it. Observers of "availablePorts" see each insertion
/// and removal.
class ORSSerialPortManager : public Observable {
 public:
  using Ports = std::vector<std::shared_ptr<ORSSerialPort>>;

  /// Names of the notifications, and the keys under which each carries its `Ports`; the object is the
  /// manager.
  static constexpr const char* wasConnectedNotification = "ORSSerialPortWasConnectedNotification";
  static constexpr const char* connectedPortsKey = "ORSConnectedSerialPortsKey";
  static constexpr const char* wasDisconnectedNotification = "ORSSerialPortWasDisconnectedNotification";
  static constexpr const char* disconnectedPortsKey = "ORSDisconnectedSerialPortsKey";

  /// The one manager, made on first use.
  static ORSSerialPortManager& sharedSerialPortManager();

  ORSSerialPortManager(const ORSSerialPortManager&) = delete;
  ORSSerialPortManager& operator=(const ORSSerialPortManager&) = delete;
  ~ORSSerialPortManager();

  /// The ports present now.
  Ports availablePorts() const;
  std::size_t countOfAvailablePorts() const;
  /// Throws std::out_of_range for an index that is not in the list.
  std::shared_ptr<ORSSerialPort> objectInAvailablePortsAtIndex(std::size_t index) const;
  void insertObjectInAvailablePortsAtIndex(std::shared_ptr<ORSSerialPort> port, std::size_t index);
  /// Each port ends up at the index of the same place in `indexes`, which must be ascending.
  void insertAvailablePortsAtIndexes(const Ports& ports, const std::vector<std::size_t>& indexes);
  void removeObjectFromAvailablePortsAtIndex(std::size_t index);
  void removeAvailablePortsAtIndexes(const std::vector<std::size_t>& indexes);

  /// Closes every open port and remembers it. The host calls it when the machine is about to sleep.
  void systemWillSleep(const Notification& notification);
  /// Opens the remembered ports again.
  void systemDidWake(const Notification& notification);

 private:
  ORSSerialPortManager();
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tarsil
