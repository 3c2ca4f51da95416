#include "tarsil/bluetooth/bluez/detail/BluezConnector.hpp"

#include <algorithm>
#include <chrono>
#include <utility>

#include "tarsil/bluetooth/bluez/detail/bluezError.hpp"

namespace tarsil::bluez {
namespace {

using namespace std::chrono_literals;
using Code = BluetoothError::Code;
using Connection = BluetoothPeripheralState;

// BlueZ gives up an attempt to connect within 40 s.
constexpr auto connectTimeout = 90s;

const BluetoothError bluetoothGone{Code::centralUnavailable, "Bluetooth is not available"};
const BluetoothError connectionGone{Code::notConnected, "the peripheral is not connected"};

bool isWaiting(const BluezPeripheral& peripheral) {
  return peripheral.connection == Connection::connecting && !peripheral.attempting;
}

}  // namespace

// BlueZ keeps a connection whose maker is gone, and a connected peripheral is heard by nobody.
BluezConnector::~BluezConnector() {
  for (const auto& peripheral : peripherals_.held()) {
    if (peripheral->path.empty()) continue;
    context_.bus->tell(peripheral->path, BluezObjects::deviceInterface, "Disconnect");
  }
}

void BluezConnector::connect(const Peripheral& peripheral) {
  switch (peripheral->connection) {
    case Connection::disconnected:
      return startAttempt(peripheral);
    case Connection::connecting:
      return;
    case Connection::connected:
      return context_.life.later([this, peripheral] {
        if (peripheral->connection == Connection::connected) owner_.didConnect(peripheral);
      });
    case Connection::disconnecting:
      peripheral->wantedAgain = true;
  }
}

void BluezConnector::startAttempt(const Peripheral& peripheral) {
  peripheral->connection = Connection::connecting;
  peripherals_.hold(peripheral);
  // On a later turn: whoever connects usually ends the scan in the next line, and that comes first.
  context_.life.later([this, peripheral, epoch = ++peripheral->epoch] {
    if (epoch != peripheral->epoch) return;
    context_.isOn() ? attempt(peripheral) : fail(peripheral, bluetoothGone);
  });
}

void BluezConnector::cancel(const Peripheral& peripheral) {
  if (!peripherals_.holds(peripheral)) return;
  peripheral->wantedAgain = false;
  if (peripheral->connection == Connection::disconnecting) return;
  const bool attempted = peripheral->connection == Connection::connecting;
  peripheral->connection = Connection::disconnecting;
  const auto epoch = ++peripheral->epoch;
  // Also ends an attempt. BlueZ says by a property when a connection is over; nothing else follows an
  // attempt.
  if (!peripheral->path.empty()) {
    context_.bus->call(peripheral->path, BluezObjects::deviceInterface, "Disconnect", callTimeout,
                       context_.life.guarded([this, peripheral, epoch](const std::optional<BusError>& error) {
                         if (error && epoch == peripheral->epoch) disconnected(peripheral, connectionGone);
                       }));
  }
  if (!attempted) return;
  context_.life.later([this, peripheral, epoch] {
    if (epoch == peripheral->epoch) disconnected(peripheral, connectionGone);
  });
}

// ---- attempts ----

void BluezConnector::attempt(const Peripheral& peripheral) {
  peripheral->path = pathOf(*peripheral);
  // A peripheral that BlueZ does not know is connected to when the scan finds it.
  discovery_.reconcile();
  if (peripheral->path.empty() || discovery_.isBusy()) return;
  peripheral->attempting = true;
  context_.bus->call(peripheral->path, BluezObjects::deviceInterface, "Connect", connectTimeout,
                     context_.life.guarded([this, peripheral, epoch = ++peripheral->epoch](
                                               const std::optional<BusError>& error) {
                       if (epoch == peripheral->epoch) attemptAnswered(peripheral, error);
                     }));
}

void BluezConnector::attemptAnswered(const Peripheral& peripheral, const std::optional<BusError>& error) {
  peripheral->attempting = false;
  discovery_.reconcile();
  if (peripheral->connection != Connection::connecting) return;
  const auto failure = error ? failureOf(*error) : Failure::none;
  if (failure == Failure::none) return connected(peripheral);
  if (failure != Failure::passing) return fail(peripheral, toBluetoothError(*error));
  context_.life.afterPause([this, peripheral, epoch = peripheral->epoch] {
    if (epoch == peripheral->epoch && isWaiting(*peripheral)) attempt(peripheral);
  });
}

void BluezConnector::attemptWaiting() {
  for (const auto& peripheral : peripherals_.held()) {
    if (isWaiting(*peripheral)) attempt(peripheral);
  }
}

bool BluezConnector::isAttempting() const {
  const auto held = peripherals_.held();
  return std::any_of(held.begin(), held.end(), [](const auto& peripheral) { return peripheral->attempting; });
}

bool BluezConnector::needsDiscovery() const {
  const auto held = peripherals_.held();
  return std::any_of(held.begin(), held.end(), [](const auto& peripheral) {
    return peripheral->connection == Connection::connecting && peripheral->path.empty();
  });
}

// BlueZ does not know a peripheral that is to be connected (any more): it is connected when the scan finds
// it.
void BluezConnector::lookFor(const Peripheral& peripheral) {
  peripheral->endConnection();
  peripheral->path.clear();
  peripheral->connection = Connection::connecting;
}

std::string BluezConnector::pathOf(const BluezPeripheral& peripheral) const {
  for (const auto& [path, device] : context_.objects.devices()) {
    if (device.address == peripheral.identifier() && device.adapter == context_.adapter) return path;
  }
  return "";
}

// ---- what BlueZ says ----

void BluezConnector::changed(const Peripheral& peripheral, const Properties& properties) {
  if (peripheral->connection == Connection::connecting && peripheral->path.empty()) attempt(peripheral);
  const auto connection = property<bool>(properties, "Connected");
  if (!connection) return;
  const bool isConnecting = peripheral->connection == Connection::connecting;
  if (*connection && isConnecting) connected(peripheral);
  if (!*connection && !isConnecting) {
    disconnected(peripheral, lossFor(peripheral->reasonName, peripheral->reasonText));
  }
}

void BluezConnector::removed(const Peripheral& peripheral) {
  if (peripheral->connection != Connection::connecting) {
    peripheral->path.clear();
    return disconnected(peripheral, lossFor(peripheral->reasonName, peripheral->reasonText));
  }
  lookFor(peripheral);
  discovery_.reconcile();
}

void BluezConnector::loseAll() {
  for (const auto& peripheral : peripherals_.held()) {
    // Whoever was told of the others may have done anything to those that are left.
    if (!peripherals_.holds(peripheral)) continue;
    const bool attempted = peripheral->connection == Connection::connecting;
    peripheral->path.clear();
    attempted ? fail(peripheral, bluetoothGone) : disconnected(peripheral, bluetoothGone);
  }
}

void BluezConnector::move() {
  for (const auto& peripheral : peripherals_.held()) {
    if (!peripherals_.holds(peripheral)) continue;
    if (peripheral->connection == Connection::connecting) {
      lookFor(peripheral);
    } else {
      peripheral->path.clear();
      disconnected(peripheral, bluetoothGone);
    }
  }
  discovery_.reconcile();
  attemptWaiting();
}

// ---- what becomes of it ----

void BluezConnector::connected(const Peripheral& peripheral) {
  peripheral->connection = Connection::connected;
  // A reason that was told while it connected belonged to an attempt.
  peripheral->reasonName.reset();
  owner_.didConnect(peripheral);
}

void BluezConnector::fail(const Peripheral& peripheral, const BluetoothError& error) {
  peripheral->endConnection();
  peripherals_.release(peripheral);
  discovery_.reconcile();
  owner_.didFailToConnect(peripheral, error);
}

void BluezConnector::disconnected(const Peripheral& peripheral, const BluetoothError& reason) {
  const bool asked = peripheral->connection == Connection::disconnecting;
  const bool wantedAgain = std::exchange(peripheral->wantedAgain, false);
  peripheral->endConnection();
  peripherals_.release(peripheral);
  discovery_.reconcile();
  owner_.didDisconnect(peripheral, asked ? std::nullopt : std::optional(reason));
  if (wantedAgain) connect(peripheral);
}

}  // namespace tarsil::bluez
