#include "tarsil/bluetooth/bluez/detail/BluezGattClient.hpp"

#include <utility>
#include <vector>

#include "tarsil/bluetooth/bluez/detail/bluezError.hpp"
#include "tarsil/bluetooth/uuid.hpp"

namespace tarsil::bluez {
namespace {

constexpr const char* serviceInterface = "org.bluez.GattService1";

const BluetoothError noConnection{BluetoothError::Code::notConnected, "the peripheral is not connected"};

std::string UUIDIn(const Properties& properties) {
  return bluetoothUUIDText(property<std::string>(properties, "UUID").value_or("")).value_or("");
}

template <class T>
std::shared_ptr<T> findAt(const std::vector<std::shared_ptr<T>>& table, const std::string& path) {
  for (const auto& entry : table) {
    if (entry->path == path) return entry;
  }
  return nullptr;
}

// What was known before stays the same object: the host may hold it.
void takeServices(BluezPeripheral& peripheral, const Objects& objects) {
  const auto before = std::exchange(peripheral.table, {});
  for (const auto& [path, interfaces] : objects) {
    const auto found = interfaces.find(serviceInterface);
    if (found == interfaces.end()) continue;
    if (property<sdbus::ObjectPath>(found->second, "Device") != peripheral.path) continue;
    auto service = findAt(before, path);
    if (!service) service = std::make_shared<BluezService>(path, UUIDIn(found->second));
    peripheral.table.push_back(service);
  }
}

void takeCharacteristics(const BluezPeripheral& peripheral, const Objects& objects) {
  for (const auto& [path, interfaces] : objects) {
    const auto found = interfaces.find(BluezObjects::characteristicInterface);
    if (found == interfaces.end() || peripheral.characteristicAt(path)) continue;
    const auto owner = property<sdbus::ObjectPath>(found->second, "Service");
    const auto service = owner ? findAt(peripheral.table, *owner) : nullptr;
    if (!service) continue;
    service->table.push_back(std::make_shared<BluezCharacteristic>(path, UUIDIn(found->second)));
  }
}

}  // namespace

// ---- services and characteristics ----

void BluezGattClient::discoverServices(const Peripheral& peripheral) {
  if (peripheral->connection != BluetoothPeripheralState::connected) {
    return context_.life.later([this, peripheral] { answerServices(peripheral, noConnection); });
  }
  peripheral->awaitsServices = true;
  const Device* device = context_.device(peripheral->path);
  if (device != nullptr && device->servicesResolved) readServices(peripheral);
}

void BluezGattClient::servicesResolved(const Peripheral& peripheral) {
  if (peripheral->awaitsServices) readServices(peripheral);
}

// The objects are asked for rather than remembered: BlueZ keeps some across connections and makes others
// anew.
void BluezGattClient::readServices(const Peripheral& peripheral) {
  peripheral->awaitsServices = false;
  context_.bus->getManagedObjects(
      context_.life.guarded([this, peripheral, epoch = peripheral->epoch](
                                const std::optional<BusError>& error, const Objects& objects) {
        if (epoch != peripheral->epoch) return;
        if (error) return answerServices(peripheral, toBluetoothError(*error));
        takeServices(*peripheral, objects);
        takeCharacteristics(*peripheral, objects);
        answerServices(peripheral, std::nullopt);
      }));
}

void BluezGattClient::answerServices(const Peripheral& peripheral,
                                     const std::optional<BluetoothError>& error) {
  if (const auto host = peripheral->delegate()) host->peripheralDidDiscoverServices(peripheral, error);
}

void BluezGattClient::discoverCharacteristics(const Peripheral& peripheral,
                                              const std::shared_ptr<BluezService>& service) {
  // BlueZ has found them together with the services.
  context_.life.later([peripheral, service, epoch = peripheral->epoch] {
    if (epoch != peripheral->epoch) return;
    service->discovered = true;
    const auto host = peripheral->delegate();
    if (host) host->peripheralDidDiscoverCharacteristicsForService(peripheral, service, std::nullopt);
  });
}

// ---- notifications ----

void BluezGattClient::setNotifyValue(const Peripheral& peripheral, const Characteristic& characteristic,
                                     bool enabled) {
  characteristic->wantsNotifications = enabled;
  switchNotifications(peripheral, characteristic, enabled);
}

void BluezGattClient::switchNotifications(const Peripheral& peripheral, const Characteristic& characteristic,
                                          bool enabled) {
  context_.bus->call(characteristic->path, BluezObjects::characteristicInterface,
                     enabled ? "StartNotify" : "StopNotify", callTimeout,
                     context_.life.guarded([this, peripheral, characteristic, enabled,
                                            epoch = peripheral->epoch](const std::optional<BusError>& error) {
                       if (epoch != peripheral->epoch) return;
                       notificationsSwitched(peripheral, characteristic, enabled, error);
                     }));
}

void BluezGattClient::notificationsSwitched(const Peripheral& peripheral,
                                            const Characteristic& characteristic, bool enabled,
                                            const std::optional<BusError>& error) {
  // Meanwhile the opposite was asked for, and that is answered.
  if (characteristic->wantsNotifications != enabled) return;
  if (isInProgress(error)) {
    return context_.life.afterPause([this, peripheral, characteristic, enabled, epoch = peripheral->epoch] {
      if (epoch != peripheral->epoch || characteristic->wantsNotifications != enabled) return;
      switchNotifications(peripheral, characteristic, enabled);
    });
  }
  characteristic->notifying = enabled && !error;
  const auto host = peripheral->delegate();
  if (!host) return;
  host->peripheralDidUpdateNotificationStateForCharacteristic(
      peripheral, characteristic, error ? std::optional(toBluetoothError(*error)) : std::nullopt);
}

void BluezGattClient::notified(const Peripheral& peripheral, const Characteristic& characteristic,
                               const Bytes& value) {
  if (!characteristic->wantsNotifications) return;
  characteristic->lastValue = value;
  if (const auto host = peripheral->delegate()) {
    host->peripheralDidUpdateValueForCharacteristic(peripheral, characteristic, std::nullopt);
  }
}

}  // namespace tarsil::bluez
