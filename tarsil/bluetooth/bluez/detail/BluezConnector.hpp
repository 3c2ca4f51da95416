#pragma once

#include <memory>
#include <optional>
#include <string>

#include "tarsil/bluetooth/bluez/detail/BluezContext.hpp"
#include "tarsil/bluetooth/bluez/detail/BluezDiscovery.hpp"
#include "tarsil/bluetooth/bluez/detail/BluezPeripherals.hpp"

namespace tarsil::bluez {

/// Makes connections and ends them; an attempt that breaks off is repeated until it succeeds, is refused or
/// is given up. Main thread.
class BluezConnector {
 public:
  using Peripheral = BluezPeripherals::Peripheral;

  /// Whom it tells; any of these may do anything to it.
  class Owner {
   public:
    virtual ~Owner() = default;
    virtual void didConnect(const Peripheral& peripheral) = 0;
    virtual void didFailToConnect(const Peripheral& peripheral, const BluetoothError& error) = 0;
    virtual void didDisconnect(const Peripheral& peripheral, const std::optional<BluetoothError>& error) = 0;
  };

  BluezConnector(const BluezContext& context, BluezPeripherals& peripherals, BluezDiscovery& discovery,
                 Owner& owner)
      : context_(context), peripherals_(peripherals), discovery_(discovery), owner_(owner) {}
  /// Ends the connections; nobody is told.
  ~BluezConnector();
  BluezConnector(const BluezConnector&) = delete;
  BluezConnector& operator=(const BluezConnector&) = delete;

  void connect(const Peripheral& peripheral);
  void cancel(const Peripheral& peripheral);

  /// BlueZ is making a connection.
  bool isAttempting() const;
  /// A peripheral that is to be connected must be found first.
  bool needsDiscovery() const;
  /// Takes up the attempts that waited for a scan to start or stop.
  void attemptWaiting();

  /// What BlueZ says of a peripheral that is held.
  void changed(const Peripheral& peripheral, const Properties& properties);
  void removed(const Peripheral& peripheral);

  /// Bluetooth is gone: connections and attempts end.
  void loseAll();
  /// Another adapter is in use: the connections end, the attempts go on.
  void move();

 private:
  void startAttempt(const Peripheral& peripheral);
  void attempt(const Peripheral& peripheral);
  void attemptAnswered(const Peripheral& peripheral, const std::optional<BusError>& error);
  void lookFor(const Peripheral& peripheral);
  std::string pathOf(const BluezPeripheral& peripheral) const;
  void connected(const Peripheral& peripheral);
  void fail(const Peripheral& peripheral, const BluetoothError& error);
  /// The reason is not told when the host asked for the end.
  void disconnected(const Peripheral& peripheral, const BluetoothError& reason);

  const BluezContext& context_;
  BluezPeripherals& peripherals_;
  BluezDiscovery& discovery_;
  Owner& owner_;
};

}  // namespace tarsil::bluez
