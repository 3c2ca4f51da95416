#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "tarsil/bluetooth/BluetoothCentral.hpp"
#include "tarsil/bluetooth/bluez/detail/BluezObjects.hpp"
#include "tarsil/bluetooth/bluez/detail/BluezPeripheral.hpp"
#include "tarsil/bluetooth/bluez/detail/SystemBus.hpp"

namespace tarsil::bluez {

/// The central role over BlueZ's objects on the system bus. `makeBluezCentral` says what it promises. Main
/// thread.
class BluezCentral final : public BluetoothCentral, public std::enable_shared_from_this<BluezCentral> {
 public:
  static std::shared_ptr<BluezCentral> create();
  ~BluezCentral() override;

  BluetoothState state() const override { return state_; }
  void setDelegate(std::weak_ptr<BluetoothCentralDelegate> delegate) override;
  void scanForPeripherals() override;
  void stopScan() override;
  void connect(const std::shared_ptr<BluetoothPeripheral>& peripheral) override;
  void cancelPeripheralConnection(const std::shared_ptr<BluetoothPeripheral>& peripheral) override;

  // What the peripherals hand on.
  using Peripheral = std::shared_ptr<BluezPeripheral>;
  void discoverServices(const Peripheral& peripheral);
  void discoverCharacteristics(const Peripheral& peripheral, const std::shared_ptr<BluezService>& service);
  void setNotifyValue(const Peripheral& peripheral,
                      const std::shared_ptr<BluezCharacteristic>& characteristic, bool enabled);

 private:
  BluezCentral() = default;
  void start();
  void subscribe();
  std::shared_ptr<BluetoothCentralDelegate> delegate() const { return delegate_.lock(); }

  // The daemon comes and goes.
  void daemonAppeared();
  void daemonVanished();
  void refresh();
  void refreshed(const std::optional<BusError>& error, const Objects& objects);

  // What the daemon tells.
  void added(const std::string& path, const Interfaces& interfaces);
  void changed(const std::string& path, const std::string& interface, const Properties& properties,
               const std::vector<std::string>& invalidated);
  void removed(const std::string& path, const std::vector<std::string>& interfaces);
  void deviceChanged(const std::string& path, const Properties& properties);
  void valueChanged(const std::string& path, const Bytes& value);

  // State.
  void chooseAdapter();
  BluetoothState adapterState() const;
  void setState(BluetoothState state);
  void tellState();
  void loseDiscovery();
  void loseEverything();
  void startAnew();

  // Scan.
  bool needsDiscovery() const;
  void reconcileDiscovery();
  void startDiscovery();
  void stopDiscovery();
  void discoveryStarted(const std::optional<BusError>& error);
  void discoveryStopped(const std::optional<BusError>& error);
  void report(const std::string& path);

  // Connections.
  Peripheral known(const std::shared_ptr<BluetoothPeripheral>& peripheral) const;
  Peripheral peripheralFor(const Device& device);
  Peripheral heldAt(const std::string& path) const;
  void attempt(const Peripheral& peripheral);
  void lookFor(const Peripheral& peripheral);
  void attemptWaiting();
  bool isAttempting() const;
  void attemptAnswered(const Peripheral& peripheral, const std::optional<BusError>& error);
  void connected(const Peripheral& peripheral);
  void fail(const Peripheral& peripheral, const BluetoothError& error);
  /// The reason is not told when the host asked for the end.
  void disconnected(const Peripheral& peripheral, const BluetoothError& reason);

  // Services and notifications.
  void readServices(const Peripheral& peripheral);
  void answerServices(const Peripheral& peripheral, const std::optional<BluetoothError>& error);
  void switchNotifications(const Peripheral& peripheral,
                           const std::shared_ptr<BluezCharacteristic>& characteristic, bool enabled);
  void answerNotificationState(const Peripheral& peripheral,
                               const std::shared_ptr<BluezCharacteristic>& characteristic,
                               const std::optional<BluetoothError>& error);

  /// Runs the work on a later turn of the main loop, if this central still lives.
  void later(Work work);
  void afterPause(Work work);
  /// The same function, called only while this central lives, which it keeps alive meanwhile.
  template <class F>
  auto guarded(F function) {
    return [weak = weak_from_this(), function = std::move(function)](auto&&... arguments) {
      if (const auto self = weak.lock()) function(arguments...);
    };
  }

  std::shared_ptr<SystemBus> bus_;
  std::weak_ptr<BluetoothCentralDelegate> delegate_;
  BluetoothState state_ = BluetoothState::unknown;
  /// A new delegate waits to be told the state.
  bool owesState_ = false;
  BluezObjects objects_;
  /// Path of the adapter in use; empty while there is none.
  std::string adapter_;

  bool wantsScan_ = false;
  /// BlueZ has confirmed that it scans for us.
  bool discovering_ = false;
  /// BlueZ has been asked to start or stop and has not answered yet.
  bool discoveryBusy_ = false;
  /// Counts the times that Bluetooth was lost: an answer from before is out of date.
  std::uint64_t life_ = 0;
  /// The name under which each device has been reported in this scan, by path.
  std::map<std::string, std::optional<std::string>> reported_;

  /// Every peripheral that somebody still holds, by address.
  std::map<std::string, std::weak_ptr<BluezPeripheral>> peripherals_;
  /// Those that are connected, or are to be.
  std::set<Peripheral> held_;
};

}  // namespace tarsil::bluez
