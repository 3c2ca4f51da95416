#include "tarsil/drivers/vitals/MEDXINGSpO2.hpp"

#include "tarsil/drivers/vitals/MEDXINGFrame.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil {

void MEDXINGSpO2::centralManagerDidUpdateState(BluetoothCentral& central) {
  if (central.state() == BluetoothState::poweredOff) printLine("蓝牙关闭，请先打开蓝牙", PrintedText::fixed);
  if (central.state() != BluetoothState::poweredOn) return;
  if (btManager) btManager->scanForPeripherals();
  printLine("蓝牙已打开, 请扫描外设!", PrintedText::fixed);
}

void MEDXINGSpO2::centralManagerDidDiscoverPeripheral(BluetoothCentral&,
                                                      const std::shared_ptr<BluetoothPeripheral>& discovered,
                                                      const BluetoothAdvertisement&, std::optional<int>) {
  if (discovered->name() != peripheralName) return;
  // The first discovery only stores the oximeter, unless the host wants connections handled here; every later
  // one connects to the stored oximeter, whichever one was discovered.
  const bool connects = peripheral || handleDisconnect == false;
  if (!peripheral) peripheral = discovered;
  if (!btManager) return;
  if (connects) btManager->connect(peripheral);
  btManager->stopScan();
}

void MEDXINGSpO2::centralManagerDidConnectPeripheral(BluetoothCentral&,
                                                     const std::shared_ptr<BluetoothPeripheral>&) {
  if (!peripheral) return;
  peripheral->setDelegate(std::static_pointer_cast<MEDXINGSpO2>(weak_from_this().lock()));
  peripheral->discoverServices();
}

void MEDXINGSpO2::centralManagerDidDisconnectPeripheral(BluetoothCentral&,
                                                        const std::shared_ptr<BluetoothPeripheral>&,
                                                        const std::optional<BluetoothError>&) {
  if (handleDisconnect == false && btManager) btManager->scanForPeripherals();
}

// Errors of the peripheral are not looked at: with one there is nothing to find, and the handlers find
// nothing.

void MEDXINGSpO2::peripheralDidDiscoverServices(const std::shared_ptr<BluetoothPeripheral>& discovered,
                                                const std::optional<BluetoothError>&) {
  for (const auto& service : discovered->services()) {
    if (service->UUID() != serviceid) continue;
    SpO2service = service;
    discovered->discoverCharacteristics(service);
  }
}

void MEDXINGSpO2::peripheralDidDiscoverCharacteristicsForService(
    const std::shared_ptr<BluetoothPeripheral>& discovered, const std::shared_ptr<BluetoothService>& service,
    const std::optional<BluetoothError>&) {
  for (const auto& characteristic : service->characteristics()) {
    if (characteristic->UUID() == characteristicid) discovered->setNotifyValue(true, characteristic);
  }
}

void MEDXINGSpO2::peripheralDidUpdateValueForCharacteristic(
    const std::shared_ptr<BluetoothPeripheral>&,
    const std::shared_ptr<BluetoothCharacteristic>& characteristic, const std::optional<BluetoothError>&) {
  if (characteristic->UUID() != characteristicid) return;
  if (const auto value = characteristic->value()) MEDXINGFrame::report(*value, befoSpO2Value, kiv_delegate);
}

}  // namespace tarsil
