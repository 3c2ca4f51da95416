#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/bluetooth/BluetoothCentral.hpp"
#include "tarsil/bluetooth/bluez/detail/BluezConnector.hpp"
#include "tarsil/bluetooth/bluez/detail/BluezContext.hpp"
#include "tarsil/bluetooth/bluez/detail/BluezDiscovery.hpp"
#include "tarsil/bluetooth/bluez/detail/BluezGattClient.hpp"
#include "tarsil/bluetooth/bluez/detail/BluezListener.hpp"
#include "tarsil/bluetooth/bluez/detail/BluezPeripherals.hpp"

namespace tarsil::bluez {

/// The central role over BlueZ's objects on the system bus. `makeBluezCentral` says what it promises. It
/// knows the state of Bluetooth and reports what a scan finds; its parts do the rest. Main thread.
class BluezCentral final : public BluetoothCentral,
                           public std::enable_shared_from_this<BluezCentral>,
                           private BluezListener,
                           private BluezDiscovery::Owner,
                           private BluezConnector::Owner {
 public:
  static std::shared_ptr<BluezCentral> create();

  BluetoothState state() const override { return context_.state; }
  void setDelegate(std::weak_ptr<BluetoothCentralDelegate> delegate) override;
  void scanForPeripherals() override;
  void stopScan() override;
  void connect(const std::shared_ptr<BluetoothPeripheral>& peripheral) override;
  void cancelPeripheralConnection(const std::shared_ptr<BluetoothPeripheral>& peripheral) override;

 private:
  using Peripheral = BluezPeripherals::Peripheral;

  BluezCentral() = default;
  void start();

  // What BlueZ says.
  void daemonAppeared() override { refresh(); }
  void daemonVanished() override;
  void added(const std::string& path, const Interfaces& interfaces) override;
  void changed(const std::string& path, const std::string& interface, const Properties& properties,
               const std::vector<std::string>& invalidated) override;
  void removed(const std::string& path, const std::vector<std::string>& interfaces) override;
  void reasonTold(const std::string& path, const std::string& reason, const std::string& text) override;
  void refresh();
  void refreshed(const std::optional<BusError>& error, const Objects& objects);
  void deviceChanged(const std::string& path, const Properties& properties);
  void deviceRemoved(const std::string& path);
  void valueChanged(const std::string& path, const Bytes& value);

  // State.
  void chooseAdapter();
  std::string bestAdapter() const;
  BluetoothState adapterState() const;
  void loseAdapters(BluetoothState state);
  void setState(BluetoothState state);
  void tellState();

  // Scan.
  void report(const std::string& path);
  bool needsDiscovery() const override { return wantsScan_ || connector_.needsDiscovery(); }
  bool isAttempting() const override { return connector_.isAttempting(); }
  void discoverySettled() override { connector_.attemptWaiting(); }
  void discoveryRefused() override { setState(BluetoothState::unauthorized); }
  void endDiscovery();

  // Connections.
  void didConnect(const Peripheral& peripheral) override;
  void didFailToConnect(const Peripheral& peripheral, const BluetoothError& error) override;
  void didDisconnect(const Peripheral& peripheral, const std::optional<BluetoothError>& error) override;

  BluezContext context_;
  std::weak_ptr<BluetoothCentralDelegate> delegate_;
  /// A new delegate waits to be told the state.
  bool owesState_ = false;
  bool wantsScan_ = false;
  /// The name under which each device has been reported in this scan, by path.
  std::map<std::string, std::optional<std::string>> reported_;

  BluezPeripherals peripherals_;
  BluezGattClient gatt_{context_};
  BluezDiscovery discovery_{context_, *this};
  BluezConnector connector_{context_, peripherals_, discovery_, *this};
};

}  // namespace tarsil::bluez
