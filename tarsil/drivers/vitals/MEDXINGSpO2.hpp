#pragma once

#include <memory>
#include <optional>
#include <string>

#include "tarsil/bluetooth/BluetoothCentral.hpp"
#include "tarsil/core/KivStressDevice.hpp"

namespace tarsil {

/// Receives the oxygen saturation of a MEDXING pulse oximeter over Bluetooth LE: finds it by its name,
/// connects, subscribes to its measurements and reports each changed value as `onReceivedSpO2WithSpO2`,
/// status 1. It sends nothing to the oximeter.
///
/// The host makes the central, stores it in `btManager`, makes this object the central's delegate (so it must
/// live in a std::shared_ptr), and chooses `handleDisconnect`. Main thread.
///
/// Errors are told nowhere: Bluetooth switched off is one line on standard output, a failed connection and a
/// value that is no measurement are dropped. A host that wants to know stands between the central and this
/// object as the central's delegate, and hands each call on. The operations of `KivStressDevice` do nothing,
/// and a serial port is only stored.
class MEDXINGSpO2 final : public KivStressDevice,
                          public BluetoothCentralDelegate,
                          public BluetoothPeripheralDelegate {
 public:
  using KivStressDevice::KivStressDevice;

  /// The advertised name that the oximeter must have, to the letter.
  std::string peripheralName = "MEDXING-SpO2";
  /// Scans and connects. While there is none, nothing is asked of anybody.
  std::shared_ptr<BluetoothCentral> btManager;
  /// The oximeter, once discovered. It is kept for good: a later discovery connects to this one. A host that
  /// wants another one sets it to null.
  std::shared_ptr<BluetoothPeripheral> peripheral;
  /// Its service, once discovered.
  std::shared_ptr<BluetoothService> SpO2service;
  /// UUIDs, in the texts that the peripheral hands out.
  std::string serviceid = "FFB0";
  std::string characteristicid = "FFB2";
  /// The two hexadecimal digits of the saturation reported last; survives disconnects.
  std::string befoSpO2Value;
  /// False: connect at the first discovery, and look for the oximeter again after a disconnect.
  /// True or unset: the first discovery only stores the oximeter, and a disconnect is left alone.
  std::optional<bool> handleDisconnect;

  /// Powered on: starts scanning and says so on standard output. Powered off: says so. Other states: nothing.
  void centralManagerDidUpdateState(BluetoothCentral& central) override;
  /// Of the peripherals named `peripheralName`, stores the first one, takes its name as `name`, connects as
  /// `handleDisconnect` says, and ends the scan. Every other one is ignored.
  void centralManagerDidDiscoverPeripheral(BluetoothCentral& central,
                                           const std::shared_ptr<BluetoothPeripheral>& discovered,
                                           const BluetoothAdvertisement& advertisementData,
                                           std::optional<int> RSSI) override;
  /// Becomes the delegate of the stored `peripheral` and asks for its services; without one, nothing.
  void centralManagerDidConnectPeripheral(BluetoothCentral& central,
                                          const std::shared_ptr<BluetoothPeripheral>& connected) override;
  /// Scans again when `handleDisconnect` is false.
  void centralManagerDidDisconnectPeripheral(BluetoothCentral& central,
                                             const std::shared_ptr<BluetoothPeripheral>& disconnected,
                                             const std::optional<BluetoothError>& error) override;

  /// Stores the service `serviceid` of the peripheral that answers and asks that one for its characteristics.
  void peripheralDidDiscoverServices(const std::shared_ptr<BluetoothPeripheral>& discovered,
                                     const std::optional<BluetoothError>& error) override;
  /// Switches the notifications of `characteristicid` on, whichever service it belongs to.
  void peripheralDidDiscoverCharacteristicsForService(const std::shared_ptr<BluetoothPeripheral>& discovered,
                                                      const std::shared_ptr<BluetoothService>& service,
                                                      const std::optional<BluetoothError>& error) override;
  /// Reports a measurement of `characteristicid` unless its saturation is the one reported last: in percent,
  /// -1 for a value above 100 and for a frame of six to eight bytes, which ends before its saturation.
  void peripheralDidUpdateValueForCharacteristic(
      const std::shared_ptr<BluetoothPeripheral>& notifying,
      const std::shared_ptr<BluetoothCharacteristic>& characteristic,
      const std::optional<BluetoothError>& error) override;
};

}  // namespace tarsil
