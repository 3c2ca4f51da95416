#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tarsil/bluetooth/BluetoothCentral.hpp"

namespace tarsil {

/// Stands between a central and its delegate: writes down what the central says, then hands it on.
class RelayingCentralDelegate : public BluetoothCentralDelegate {
 public:
  /// Without a receiver it only writes down.
  explicit RelayingCentralDelegate(std::shared_ptr<BluetoothCentralDelegate> receiver = nullptr)
      : receiver_(receiver ? std::move(receiver) : std::make_shared<BluetoothCentralDelegate>()) {}

  void centralManagerDidUpdateState(BluetoothCentral& central) override;
  void centralManagerDidDiscoverPeripheral(BluetoothCentral& central,
                                           const std::shared_ptr<BluetoothPeripheral>& peripheral,
                                           const BluetoothAdvertisement& advertisementData,
                                           std::optional<int> RSSI) override;
  void centralManagerDidConnectPeripheral(BluetoothCentral& central,
                                          const std::shared_ptr<BluetoothPeripheral>& peripheral) override;
  void centralManagerDidFailToConnectPeripheral(BluetoothCentral& central,
                                                const std::shared_ptr<BluetoothPeripheral>& peripheral,
                                                const std::optional<BluetoothError>& error) override;
  void centralManagerDidDisconnectPeripheral(BluetoothCentral& central,
                                             const std::shared_ptr<BluetoothPeripheral>& peripheral,
                                             const std::optional<BluetoothError>& error) override;

  /// "poweredOn", "discovered MEDXING-SpO2" ("discovered ?" without a name), "connected", "failed unknown",
  /// "disconnected connectionTimeout" ("disconnected" without an error).
  std::vector<std::string> heard;
  /// The peripheral of the last call that had one.
  std::shared_ptr<BluetoothPeripheral> lastPeripheral;

  std::vector<std::string> take() { return std::exchange(heard, {}); }
  bool hasHeard(const std::string& line) const;
  std::size_t count(const std::string& line) const;

 private:
  std::shared_ptr<BluetoothCentralDelegate> receiver_;
};

const char* nameOf(BluetoothState state);
const char* nameOf(BluetoothError::Code code);

}  // namespace tarsil
