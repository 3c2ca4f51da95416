#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "tarsil/runtime/NotificationCenter.hpp"
#include "tarsil/runtime/Observable.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"

namespace tarsil {

class SerialDeviceRegistry;

/// Knows which serial ports the machine has, and follows devices as they come and go.
///
/// Make it (first use of `sharedSerialPortManager()`) on the main thread: notifications are posted, and the
/// list changes, on the run loop of the thread that made it. Observers of "availablePorts" see each insertion
/// and removal, on the thread that makes it. The list may be read on any thread; one thread at a time may
/// change it, while no device comes or goes.
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

  /// A manager of the program's own, over the devices of `registry`, which is not null. Its ports, too, are
  /// closed when the process ends. Main thread, as its end.
  explicit ORSSerialPortManager(std::shared_ptr<SerialDeviceRegistry> registry);
  ORSSerialPortManager(const ORSSerialPortManager&) = delete;
  ORSSerialPortManager& operator=(const ORSSerialPortManager&) = delete;
  ~ORSSerialPortManager();

  /// The ports present now.
  Ports availablePorts() const;
  std::size_t countOfAvailablePorts() const;
  /// Throws std::out_of_range for an index that is not in the list.
  std::shared_ptr<ORSSerialPort> objectInAvailablePortsAtIndex(std::size_t index) const;
  /// Throws std::out_of_range for an index beyond the end, std::logic_error for a null port.
  void insertObjectInAvailablePortsAtIndex(std::shared_ptr<ORSSerialPort> port, std::size_t index);
  /// Each port ends up at the index of the same place in `indexes`. Throws std::out_of_range for an index
  /// beyond the end, std::logic_error for indexes that do not ascend or are not as many as the ports, and for
  /// a null port; nothing is inserted then.
  void insertAvailablePortsAtIndexes(const Ports& ports, const std::vector<std::size_t>& indexes);
  /// Throws std::out_of_range for an index that is not in the list.
  void removeObjectFromAvailablePortsAtIndex(std::size_t index);
  /// Throws std::out_of_range for an index that is not in the list, std::logic_error for indexes that do not
  /// ascend; nothing is removed then.
  void removeAvailablePortsAtIndexes(const std::vector<std::size_t>& indexes);

  /// Closes every open port of the list and remembers it. The host calls it when the machine is about to
  /// sleep: the library does not ask the system. On the thread that owns the ports, as `systemDidWake`.
  void systemWillSleep(const Notification& notification);
  /// Opens the remembered ports again, and forgets them.
  void systemDidWake(const Notification& notification);

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tarsil
