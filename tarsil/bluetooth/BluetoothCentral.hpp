#pragma once

#include <memory>

#include "tarsil/bluetooth/BluetoothCentralDelegate.hpp"
#include "tarsil/bluetooth/BluetoothPeripheral.hpp"

namespace tarsil {

enum class BluetoothState {
  /// Not known yet.
  unknown,
  /// The system's Bluetooth service is away for the moment (not started, or being restarted).
  resetting,
  /// There is no adapter.
  unsupported,
  /// The system refuses this process the use of Bluetooth.
  unauthorized,
  poweredOff,
  poweredOn,
};

/// The central role of Bluetooth Low Energy: finds peripherals and connects to them. Main thread; no call
/// waits, every answer comes to the delegate; without a delegate the answers are dropped. A host makes one of
/// the system it runs on and hands it to whoever needs Bluetooth; the library itself never makes one. Its
/// connections end with it.
class BluetoothCentral {
 public:
  virtual ~BluetoothCentral() = default;

  /// The state that the delegate has been told last, or is about to be told.
  virtual BluetoothState state() const = 0;

  /// Replaces the delegate; the central does not keep it alive. A state that is known already is told to the
  /// new delegate on a later turn of the main run loop.
  virtual void setDelegate(std::weak_ptr<BluetoothCentralDelegate> delegate) = 0;

  /// Looks for every peripheral, whatever it offers, and reports each one in reach once (and again when its
  /// name becomes known later), also those seen by an earlier scan and those that are connected. Does nothing
  /// unless `poweredOn`; a loss of Bluetooth ends the scan.
  virtual void scanForPeripherals() = 0;
  /// Ends the scan, if there is one.
  virtual void stopScan() = 0;

  /// Connects to a peripheral of this central. Answered by `centralManagerDidConnectPeripheral` (also when it
  /// is connected already) or `centralManagerDidFailToConnectPeripheral`. While an attempt goes on, another
  /// call adds nothing; while a connection ends, the attempt follows its end. Another central's peripheral,
  /// or null, does nothing.
  virtual void connect(const std::shared_ptr<BluetoothPeripheral>& peripheral) = 0;
  /// Ends a connection, or the attempt to make one. Answered by `centralManagerDidDisconnectPeripheral`,
  /// without an error; does nothing without either.
  virtual void cancelPeripheralConnection(const std::shared_ptr<BluetoothPeripheral>& peripheral) = 0;
};

}  // namespace tarsil
