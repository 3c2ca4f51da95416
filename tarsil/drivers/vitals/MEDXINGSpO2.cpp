#include "tarsil/drivers/vitals/MEDXINGSpO2.hpp"

#include "tarsil/drivers/vitals/MEDXINGFrame.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil {

void MEDXINGSpO2::centralManagerDidUpdateState(BluetoothCentral& central) {
  if (central.state() == BluetoothState::poweredOff) printLine("蓝牙关闭，请先打开蓝牙", PrintedText::fixed);
  if (central.state() != BluetoothState::poweredOn) return;
  if (btManager) btManager->scanForPeripherals();
  // The text asks for a scan although one has just begun: it is meant for the user, who chooses an oximeter
  // then.
  printLine("蓝牙已打开, 请扫描外设!", PrintedText::fixed);
}

void MEDXINGSpO2::centralManagerDidDiscoverPeripheral(BluetoothCentral&,
                                                      const std::shared_ptr<BluetoothPeripheral>& discovered,
                                                      const BluetoothAdvertisement&, std::optional<int>) {
  if (discovered->name() != peripheralName) return;
  // The first discovery only stores the oximeter, unless the host wants connections handled here: until then
  // it is the user's choice whether to connect. Every later one connects to the stored oximeter, whichever
  // one was discovered, so that a session stays with one oximeter.
  const bool connects = peripheral || handleDisconnect == false;
  if (!peripheral) {
    peripheral = discovered;
    name = discovered->name();
  }
  if (!btManager) return;
  if (connects) btManager->connect(peripheral);
  btManager->stopScan();
}

void MEDXINGSpO2::centralManagerDidConnectPeripheral(BluetoothCentral&,
                                                     const std::shared_ptr<BluetoothPeripheral>&) {
  if (!peripheral) return;
  // The stored one, whichever is said to have connected: there is one connection at a time, and it is this
  // one's.
  peripheral->setDelegate(std::static_pointer_cast<MEDXINGSpO2>(weak_from_this().lock()));
  peripheral->discoverServices();
}

void MEDXINGSpO2::centralManagerDidDisconnectPeripheral(BluetoothCentral&,
                                                        const std::shared_ptr<BluetoothPeripheral>&,
                                                        const std::optional<BluetoothError>&) {
  // The name reads the other way round: false is the choice that handles the disconnect here, true leaves it
  // to the host. Any disconnect counts, also one that the host asked for.
  if (handleDisconnect == false && btManager) btManager->scanForPeripherals();
}

// Errors of the peripheral are not looked at: whatever it hands out in spite of one can be used, and usually
// there is nothing to find.

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
  // The filter is not reset by a disconnect: after it, a value is news only when it differs from the one
  // before.
  if (const auto value = characteristic->value()) MEDXINGFrame::report(*value, befoSpO2Value, kiv_delegate);
}

}  // namespace tarsil
