#include "tarsil/bluetooth/bluez/detail/BluezCentral.hpp"

#include <chrono>
#include <utility>
#include <vector>

#include "tarsil/bluetooth/bluez/detail/bluezError.hpp"
#include "tarsil/bluetooth/uuid.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil::bluez {
namespace {

using namespace std::chrono_literals;
using Code = BluetoothError::Code;
using Connection = BluetoothPeripheralState;

constexpr const char* serviceInterface = "org.bluez.GattService1";
constexpr const char* characteristicInterface = "org.bluez.GattCharacteristic1";

// BlueZ gives up an attempt to connect within 40 s; every other call is answered within moments.
constexpr auto connectTimeout = 90s;
constexpr auto callTimeout = 20s;
constexpr auto pauseBeforeRepetition = 1s;

const BluetoothError bluetoothGone{Code::centralUnavailable, "Bluetooth is not available"};
const BluetoothError noConnection{Code::notConnected, "the peripheral is not connected"};

bool isBusy(const std::optional<BusError>& error) {
  return error && error->name == "org.bluez.Error.InProgress";
}

std::string textOf(const Properties& properties, const std::string& name) {
  return bluetoothUUIDText(property<std::string>(properties, name).value_or("")).value_or("");
}

}  // namespace

std::shared_ptr<BluezCentral> BluezCentral::create() {
  std::shared_ptr<BluezCentral> central(new BluezCentral);
  central->start();
  return central;
}

// BlueZ keeps a connection whose maker is gone, and a connected peripheral is heard by nobody.
BluezCentral::~BluezCentral() {
  for (const auto& peripheral : held_) {
    if (!peripheral->path.empty()) {
      bus_->tell(peripheral->path, BluezObjects::deviceInterface, "Disconnect");
    }
  }
}

void BluezCentral::start() {
  try {
    bus_ = SystemBus::open(guarded([this] {
      objects_.clear();
      adapter_.clear();
      setState(BluetoothState::unsupported);
    }));
    subscribe();
    // Asked before anything else is: the question for BlueZ's objects may make the system start a daemon,
    // which takes long where it cannot.
    if (!bus_->hasService()) setState(BluetoothState::unsupported);
  } catch (const sdbus::Error& error) {
    printLine("Bluetooth: no system bus: " + error.getMessage(), PrintedText::diagnostic);
    bus_ = nullptr;
    return setState(BluetoothState::unsupported);
  }
  refresh();
}

void BluezCentral::subscribe() {
  const std::string fromDaemon = "type='signal',sender='org.bluez',";
  bus_->subscribe("type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='org.bluez'",
                  [this](sdbus::Message& signal) -> Work {
                    std::string name;
                    std::string before;
                    std::string now;
                    signal >> name >> before >> now;
                    return guarded([this, before, now] {
                      if (!before.empty()) daemonVanished();
                      if (!now.empty()) daemonAppeared();
                    });
                  });
  bus_->subscribe(fromDaemon + "interface='org.freedesktop.DBus.Properties',member='PropertiesChanged'",
                  [this](sdbus::Message& signal) -> Work {
                    std::string interface;
                    Properties properties;
                    std::vector<std::string> invalidated;
                    signal >> interface >> properties >> invalidated;
                    return guarded([this, path = signal.getPath(), interface, properties, invalidated] {
                      changed(path, interface, properties, invalidated);
                    });
                  });
  bus_->subscribe(fromDaemon + "interface='org.freedesktop.DBus.ObjectManager',member='InterfacesAdded'",
                  [this](sdbus::Message& signal) -> Work {
                    sdbus::ObjectPath path;
                    Interfaces interfaces;
                    signal >> path >> interfaces;
                    return guarded([this, path, interfaces] { added(path, interfaces); });
                  });
  bus_->subscribe(fromDaemon + "interface='org.freedesktop.DBus.ObjectManager',member='InterfacesRemoved'",
                  [this](sdbus::Message& signal) -> Work {
                    sdbus::ObjectPath path;
                    std::vector<std::string> interfaces;
                    signal >> path >> interfaces;
                    return guarded([this, path, interfaces] { removed(path, interfaces); });
                  });
  // Newer versions of BlueZ only. A reason counts when it comes before the property that says that the
  // connection is over.
  bus_->subscribe(fromDaemon + "interface='org.bluez.Device1',member='Disconnected'",
                  [this](sdbus::Message& signal) -> Work {
                    std::string reason;
                    std::string text;
                    signal >> reason >> text;
                    return guarded([this, path = signal.getPath(), reason, text] {
                      const auto peripheral = heldAt(path);
                      if (!peripheral) return;
                      peripheral->reasonName = reason;
                      peripheral->reasonText = text;
                    });
                  });
}

void BluezCentral::setDelegate(std::weak_ptr<BluetoothCentralDelegate> delegate) {
  delegate_ = std::move(delegate);
  owesState_ = state_ != BluetoothState::unknown;
  later([this] {
    if (owesState_) tellState();
  });
}

// ---- the daemon comes and goes ----

void BluezCentral::daemonAppeared() {
  refresh();
}

void BluezCentral::daemonVanished() {
  // First of all: a delegate that runs the loop may let the next daemon in.
  bus_->forgetAll();
  objects_.clear();
  adapter_.clear();
  setState(BluetoothState::resetting);
}

void BluezCentral::refresh() {
  bus_->getManagedObjects(guarded(
      [this](const std::optional<BusError>& error, const Objects& objects) { refreshed(error, objects); }));
}

void BluezCentral::refreshed(const std::optional<BusError>& error, const Objects& objects) {
  if (!error) {
    for (const auto& [path, interfaces] : objects) objects_.add(path, interfaces);
    return chooseAdapter();
  }
  switch (failureOf(*error)) {
    case Failure::refused:
      return setState(BluetoothState::unauthorized);
    case Failure::noDaemon:
      // A daemon that was there before is expected back.
      if (state_ != BluetoothState::resetting) setState(BluetoothState::unsupported);
      return;
    default:
      if (state_ == BluetoothState::unknown) setState(BluetoothState::unsupported);
      return afterPause([this] { refresh(); });
  }
}

// ---- what the daemon tells ----

void BluezCentral::added(const std::string& path, const Interfaces& interfaces) {
  objects_.add(path, interfaces);
  if (interfaces.contains(BluezObjects::adapterInterface)) chooseAdapter();
  if (const auto device = interfaces.find(BluezObjects::deviceInterface); device != interfaces.end()) {
    deviceChanged(path, device->second);
  }
}

void BluezCentral::changed(const std::string& path, const std::string& interface,
                           const Properties& properties, const std::vector<std::string>& invalidated) {
  if (interface == characteristicInterface) {
    if (const auto value = property<Bytes>(properties, "Value")) valueChanged(path, *value);
    return;
  }
  objects_.change(path, interface, properties, invalidated);
  // An adapter has other properties, which say nothing of its state.
  if (interface == BluezObjects::adapterInterface && properties.contains("Powered")) chooseAdapter();
  if (interface == BluezObjects::deviceInterface) deviceChanged(path, properties);
}

void BluezCentral::removed(const std::string& path, const std::vector<std::string>& interfaces) {
  for (const auto& interface : interfaces) {
    objects_.remove(path, interface);
    if (interface == BluezObjects::adapterInterface) chooseAdapter();
    if (interface != BluezObjects::deviceInterface) continue;
    reported_.erase(path);
    const auto peripheral = heldAt(path);
    if (!peripheral) continue;
    peripheral->path.clear();
    if (peripheral->connection != Connection::connecting) {
      disconnected(peripheral, lossFor(peripheral->reasonName, peripheral->reasonText));
      continue;
    }
    lookFor(peripheral);
    reconcileDiscovery();
  }
  bus_->forget(path);
}

void BluezCentral::deviceChanged(const std::string& path, const Properties& properties) {
  const Device* device = objects_.device(path);
  if (device == nullptr || device->adapter != adapter_) return;
  const auto known = peripherals_.find(device->address);
  const auto peripheral = known == peripherals_.end() ? nullptr : known->second.lock();
  if (peripheral && device->name) peripheral->lastName = device->name;

  if (properties.contains("RSSI") || properties.contains("Name") || properties.contains("Connected")) {
    report(path);
  }

  // The delegate may have done anything: look again.
  device = objects_.device(path);
  if (!peripheral || device == nullptr || !held_.contains(peripheral)) return;
  if (peripheral->connection == Connection::connecting && peripheral->path.empty()) attempt(peripheral);
  if (const auto connection = property<bool>(properties, "Connected")) {
    if (*connection && peripheral->connection == Connection::connecting) connected(peripheral);
    if (!*connection && peripheral->connection != Connection::connecting) {
      disconnected(peripheral, lossFor(peripheral->reasonName, peripheral->reasonText));
    }
  }
  if (property<bool>(properties, "ServicesResolved").value_or(false) && peripheral->awaitsServices) {
    readServices(peripheral);
  }
}

void BluezCentral::valueChanged(const std::string& path, const Bytes& value) {
  for (const auto& peripheral : held_) {
    const auto characteristic = peripheral->characteristicAt(path);
    if (!characteristic || !characteristic->wantsNotifications) continue;
    characteristic->lastValue = value;
    // The delegate may end the connection, which takes the peripheral out of the set.
    const Peripheral kept = peripheral;
    if (const auto host = kept->delegate()) {
      host->peripheralDidUpdateValueForCharacteristic(kept, characteristic, std::nullopt);
    }
    return;
  }
}

// ---- state ----

void BluezCentral::chooseAdapter() {
  const auto& adapters = objects_.adapters();
  const auto current = adapters.find(adapter_);
  if (current == adapters.end() || !current->second) {
    auto chosen = current;
    for (auto candidate = adapters.begin(); candidate != adapters.end(); ++candidate) {
      if (chosen == adapters.end() || (candidate->second && !chosen->second)) chosen = candidate;
    }
    const std::string path = chosen == adapters.end() ? "" : chosen->first;
    const bool moved = path != std::exchange(adapter_, path);
    if (moved && state_ == BluetoothState::poweredOn && adapterState() == BluetoothState::poweredOn) {
      return startAnew();
    }
  }
  setState(adapterState());
}

BluetoothState BluezCentral::adapterState() const {
  const auto adapter = objects_.adapters().find(adapter_);
  if (adapter == objects_.adapters().end()) return BluetoothState::unsupported;
  return adapter->second ? BluetoothState::poweredOn : BluetoothState::poweredOff;
}

void BluezCentral::setState(BluetoothState state) {
  if (state == state_) return;
  const bool lost = std::exchange(state_, state) == BluetoothState::poweredOn;
  if (lost) {
    wantsScan_ = false;
    loseEverything();
  }
  // A delegate that hears of a lost connection may have made the loop run, and the state move on.
  if (state == state_) tellState();
}

void BluezCentral::tellState() {
  owesState_ = false;
  if (const auto host = delegate()) host->centralManagerDidUpdateState(*this);
}

void BluezCentral::loseDiscovery() {
  ++life_;
  discovering_ = false;
  discoveryBusy_ = false;
  reported_.clear();
}

void BluezCentral::loseEverything() {
  loseDiscovery();
  const auto held = held_;
  for (const auto& peripheral : held) {
    // The delegate may have done anything to those that are left.
    if (!held_.contains(peripheral)) continue;
    const bool attempted = peripheral->connection == Connection::connecting;
    peripheral->path.clear();
    attempted ? fail(peripheral, bluetoothGone) : disconnected(peripheral, bluetoothGone);
  }
}

// From one adapter that is on to another: the connections are lost; the scan and the attempts to connect go
// on.
void BluezCentral::startAnew() {
  loseDiscovery();
  const auto held = held_;
  for (const auto& peripheral : held) {
    if (!held_.contains(peripheral)) continue;
    peripheral->path.clear();
    if (peripheral->connection == Connection::connecting) {
      lookFor(peripheral);
    } else {
      disconnected(peripheral, bluetoothGone);
    }
  }
  reconcileDiscovery();
  attemptWaiting();
}

// ---- scan ----

void BluezCentral::scanForPeripherals() {
  if (state_ != BluetoothState::poweredOn) return;
  wantsScan_ = true;
  reported_.clear();
  reconcileDiscovery();
  // Those that an ongoing scan hears already will not be told of again.
  later([this] {
    std::vector<std::string> paths;
    for (const auto& [path, device] : objects_.devices()) paths.push_back(path);
    for (const auto& path : paths) report(path);
  });
}

void BluezCentral::stopScan() {
  wantsScan_ = false;
  reconcileDiscovery();
}

bool BluezCentral::needsDiscovery() const {
  if (wantsScan_) return true;
  for (const auto& peripheral : held_) {
    if (peripheral->connection == Connection::connecting && peripheral->path.empty()) return true;
  }
  return false;
}

// BlueZ pauses its scan while it connects. Asked to stop it at that moment, it believes for good that it
// scans (seen in BlueZ 5.66): so the scan is stopped before a connection is attempted, or after.
void BluezCentral::reconcileDiscovery() {
  if (state_ != BluetoothState::poweredOn || discoveryBusy_ || needsDiscovery() == discovering_) return;
  if (discovering_ && isAttempting()) return;
  discoveryBusy_ = true;
  discovering_ ? stopDiscovery() : startDiscovery();
}

void BluezCentral::startDiscovery() {
  // BlueZ takes calls in order: the filter holds when the scan starts.
  bus_->call(
      adapter_, BluezObjects::adapterInterface, "SetDiscoveryFilter", callTimeout,
      [](const std::optional<BusError>&) {},
      [](sdbus::MethodCall& call) {
        call << Properties{{"Transport", sdbus::Variant(std::string("le"))},
                           {"DuplicateData", sdbus::Variant(false)}};
      });
  bus_->call(adapter_, BluezObjects::adapterInterface, "StartDiscovery", callTimeout,
             guarded([this, life = life_](const std::optional<BusError>& error) {
               if (life == life_) discoveryStarted(error);
             }));
}

void BluezCentral::stopDiscovery() {
  bus_->call(adapter_, BluezObjects::adapterInterface, "StopDiscovery", callTimeout,
             guarded([this, life = life_](const std::optional<BusError>& error) {
               if (life == life_) discoveryStopped(error);
             }));
}

void BluezCentral::discoveryStopped(const std::optional<BusError>& error) {
  if (isBusy(error)) {
    return afterPause([this, life = life_] {
      if (life == life_) stopDiscovery();
    });
  }
  // Any other error says that there is nothing to stop.
  discoveryBusy_ = false;
  discovering_ = false;
  reconcileDiscovery();
  attemptWaiting();
}

void BluezCentral::discoveryStarted(const std::optional<BusError>& error) {
  if (error && failureOf(*error) == Failure::refused) return setState(BluetoothState::unauthorized);
  if (!error) {
    discoveryBusy_ = false;
    discovering_ = true;
    reconcileDiscovery();
    return attemptWaiting();
  }
  // Whatever state BlueZ is in, it starts from none.
  bus_->call(adapter_, BluezObjects::adapterInterface, "StopDiscovery", callTimeout,
             [](const std::optional<BusError>&) {});
  afterPause([this, life = life_] {
    if (life != life_) return;
    discoveryBusy_ = false;
    // Connections do not wait for a scan that cannot start.
    attemptWaiting();
    reconcileDiscovery();
  });
}

// A device is in reach while BlueZ knows how strong its signal is, or has a connection to it: a connected one
// does not advertise. (A program that had connected it may be gone.) It is told once, and again under a new
// name.
void BluezCentral::report(const std::string& path) {
  const Device* device = objects_.device(path);
  if (!wantsScan_ || device == nullptr || device->adapter != adapter_) return;
  if (!device->RSSI && !device->connected) return;
  const auto before = reported_.find(path);
  if (before != reported_.end() && before->second == device->name) return;
  reported_[path] = device->name;

  const auto peripheral = peripheralFor(*device);
  const BluetoothAdvertisement advertisement{device->name, device->services};
  if (const auto host = delegate()) {
    host->centralManagerDidDiscoverPeripheral(*this, peripheral, advertisement, device->RSSI);
  }
}

// ---- connections ----

void BluezCentral::connect(const std::shared_ptr<BluetoothPeripheral>& peripheral) {
  const auto target = known(peripheral);
  if (!target) return;
  if (target->connection == Connection::connecting) return;
  if (target->connection == Connection::connected) {
    return later([this, target] {
      const auto host = delegate();
      if (host && target->connection == Connection::connected)
        host->centralManagerDidConnectPeripheral(*this, target);
    });
  }
  if (target->connection == Connection::disconnecting) {
    target->wantedAgain = true;
    return;
  }
  target->connection = Connection::connecting;
  held_.insert(target);
  // On a later turn: whoever connects usually ends the scan in the next line, and that comes first.
  later([this, target, epoch = ++target->epoch] {
    if (epoch != target->epoch) return;
    state_ == BluetoothState::poweredOn ? attempt(target) : fail(target, bluetoothGone);
  });
}

void BluezCentral::cancelPeripheralConnection(const std::shared_ptr<BluetoothPeripheral>& peripheral) {
  const auto target = known(peripheral);
  if (!target || !held_.contains(target)) return;
  target->wantedAgain = false;
  if (target->connection == Connection::disconnecting) return;
  const bool attempted = target->connection == Connection::connecting;
  target->connection = Connection::disconnecting;
  ++target->epoch;
  // Also ends an attempt. BlueZ says by a property when a connection is over; nothing else follows an
  // attempt.
  if (!target->path.empty()) {
    bus_->call(target->path, BluezObjects::deviceInterface, "Disconnect", callTimeout,
               guarded([this, target, epoch = target->epoch](const std::optional<BusError>& error) {
                 if (error && epoch == target->epoch) disconnected(target, noConnection);
               }));
  }
  if (!attempted) return;
  later([this, target, epoch = target->epoch] {
    if (epoch == target->epoch) disconnected(target, noConnection);
  });
}

BluezCentral::Peripheral BluezCentral::known(const std::shared_ptr<BluetoothPeripheral>& peripheral) const {
  if (!peripheral || !bus_) return nullptr;
  const auto found = peripherals_.find(peripheral->identifier());
  const auto own = found == peripherals_.end() ? nullptr : found->second.lock();
  return own == peripheral ? own : nullptr;
}

BluezCentral::Peripheral BluezCentral::peripheralFor(const Device& device) {
  if (const auto known = peripherals_[device.address].lock()) return known;
  std::erase_if(peripherals_, [](const auto& entry) { return entry.second.expired(); });
  const auto made = std::make_shared<BluezPeripheral>(weak_from_this(), device.address);
  made->lastName = device.name;
  peripherals_[device.address] = made;
  return made;
}

BluezCentral::Peripheral BluezCentral::heldAt(const std::string& path) const {
  for (const auto& peripheral : held_) {
    if (peripheral->path == path) return peripheral;
  }
  return nullptr;
}

void BluezCentral::attempt(const Peripheral& peripheral) {
  for (const auto& [path, device] : objects_.devices()) {
    if (device.address == peripheral->identifier() && device.adapter == adapter_) peripheral->path = path;
  }
  // A peripheral that BlueZ has forgotten is connected to when the scan finds it.
  reconcileDiscovery();
  if (peripheral->path.empty() || discoveryBusy_) return;
  peripheral->attempting = true;
  bus_->call(peripheral->path, BluezObjects::deviceInterface, "Connect", connectTimeout,
             guarded([this, peripheral, epoch = ++peripheral->epoch](const std::optional<BusError>& error) {
               if (epoch == peripheral->epoch) attemptAnswered(peripheral, error);
             }));
}

// BlueZ does not know a peripheral that is to be connected (any more): it is connected when the scan finds
// it.
void BluezCentral::lookFor(const Peripheral& peripheral) {
  peripheral->endConnection();
  peripheral->connection = Connection::connecting;
}

void BluezCentral::attemptWaiting() {
  const auto held = held_;
  for (const auto& peripheral : held) {
    if (peripheral->connection == Connection::connecting && !peripheral->attempting) attempt(peripheral);
  }
}

bool BluezCentral::isAttempting() const {
  for (const auto& peripheral : held_) {
    if (peripheral->attempting) return true;
  }
  return false;
}

void BluezCentral::attemptAnswered(const Peripheral& peripheral, const std::optional<BusError>& error) {
  peripheral->attempting = false;
  reconcileDiscovery();
  if (peripheral->connection != Connection::connecting) return;
  const auto failure = error ? failureOf(*error) : Failure::none;
  if (failure == Failure::none) return connected(peripheral);
  if (failure != Failure::passing) return fail(peripheral, toBluetoothError(*error));
  afterPause([this, peripheral, epoch = peripheral->epoch] {
    if (epoch == peripheral->epoch && peripheral->connection == Connection::connecting) attempt(peripheral);
  });
}

void BluezCentral::connected(const Peripheral& peripheral) {
  peripheral->connection = Connection::connected;
  // A reason that was told while it connected belonged to an attempt.
  peripheral->reasonName.reset();
  if (const auto host = delegate()) host->centralManagerDidConnectPeripheral(*this, peripheral);
}

void BluezCentral::fail(const Peripheral& peripheral, const BluetoothError& error) {
  peripheral->endConnection();
  held_.erase(peripheral);
  reconcileDiscovery();
  if (const auto host = delegate()) host->centralManagerDidFailToConnectPeripheral(*this, peripheral, error);
}

void BluezCentral::disconnected(const Peripheral& peripheral, const BluetoothError& reason) {
  const bool asked = peripheral->connection == Connection::disconnecting;
  const bool wantedAgain = std::exchange(peripheral->wantedAgain, false);
  peripheral->endConnection();
  held_.erase(peripheral);
  reconcileDiscovery();
  const auto error = asked ? std::nullopt : std::optional(reason);
  if (const auto host = delegate()) host->centralManagerDidDisconnectPeripheral(*this, peripheral, error);
  if (wantedAgain) connect(peripheral);
}

// ---- services and notifications ----

void BluezCentral::discoverServices(const Peripheral& peripheral) {
  if (peripheral->connection != Connection::connected) {
    return later([this, peripheral] { answerServices(peripheral, noConnection); });
  }
  peripheral->awaitsServices = true;
  const Device* device = objects_.device(peripheral->path);
  if (device != nullptr && device->servicesResolved) readServices(peripheral);
}

// The objects are asked for rather than remembered: BlueZ keeps some across connections and makes others
// anew.
void BluezCentral::readServices(const Peripheral& peripheral) {
  peripheral->awaitsServices = false;
  bus_->getManagedObjects(guarded([this, peripheral, epoch = peripheral->epoch](
                                      const std::optional<BusError>& error, const Objects& objects) {
    if (epoch != peripheral->epoch) return;
    if (error) return answerServices(peripheral, toBluetoothError(*error));
    const auto before = std::exchange(peripheral->table, {});
    for (const auto& [path, interfaces] : objects) {
      const auto service = interfaces.find(serviceInterface);
      if (service == interfaces.end()) continue;
      if (property<sdbus::ObjectPath>(service->second, "Device") != peripheral->path) continue;
      std::shared_ptr<BluezService> entry;
      for (const auto& known : before) {
        if (known->path == path) entry = known;
      }
      if (!entry) entry = std::make_shared<BluezService>(path, textOf(service->second, "UUID"));
      peripheral->table.push_back(entry);
    }
    for (const auto& [path, interfaces] : objects) {
      const auto characteristic = interfaces.find(characteristicInterface);
      if (characteristic == interfaces.end() || peripheral->characteristicAt(path)) continue;
      const auto owner = property<sdbus::ObjectPath>(characteristic->second, "Service");
      for (const auto& service : peripheral->table) {
        if (owner != service->path) continue;
        service->table.push_back(
            std::make_shared<BluezCharacteristic>(path, textOf(characteristic->second, "UUID")));
      }
    }
    answerServices(peripheral, std::nullopt);
  }));
}

void BluezCentral::answerServices(const Peripheral& peripheral, const std::optional<BluetoothError>& error) {
  if (const auto host = peripheral->delegate()) host->peripheralDidDiscoverServices(peripheral, error);
}

void BluezCentral::discoverCharacteristics(const Peripheral& peripheral,
                                           const std::shared_ptr<BluezService>& service) {
  // BlueZ has found them together with the services.
  later([peripheral, service, epoch = peripheral->epoch] {
    const auto host = peripheral->delegate();
    if (epoch != peripheral->epoch || !host) return;
    service->discovered = true;
    host->peripheralDidDiscoverCharacteristicsForService(peripheral, service, std::nullopt);
  });
}

void BluezCentral::setNotifyValue(const Peripheral& peripheral,
                                  const std::shared_ptr<BluezCharacteristic>& characteristic, bool enabled) {
  characteristic->wantsNotifications = enabled;
  switchNotifications(peripheral, characteristic, enabled);
}

void BluezCentral::switchNotifications(const Peripheral& peripheral,
                                       const std::shared_ptr<BluezCharacteristic>& characteristic,
                                       bool enabled) {
  bus_->call(characteristic->path, characteristicInterface, enabled ? "StartNotify" : "StopNotify",
             callTimeout,
             guarded([this, peripheral, characteristic, enabled,
                      epoch = peripheral->epoch](const std::optional<BusError>& error) {
               if (epoch != peripheral->epoch || characteristic->wantsNotifications != enabled) return;
               if (isBusy(error)) {
                 return afterPause([this, peripheral, characteristic, enabled, epoch] {
                   if (epoch != peripheral->epoch || characteristic->wantsNotifications != enabled) return;
                   switchNotifications(peripheral, characteristic, enabled);
                 });
               }
               characteristic->notifying = enabled && !error;
               answerNotificationState(peripheral, characteristic,
                                       error ? std::optional(toBluetoothError(*error)) : std::nullopt);
             }));
}

void BluezCentral::answerNotificationState(const Peripheral& peripheral,
                                           const std::shared_ptr<BluezCharacteristic>& characteristic,
                                           const std::optional<BluetoothError>& error) {
  if (const auto host = peripheral->delegate()) {
    host->peripheralDidUpdateNotificationStateForCharacteristic(peripheral, characteristic, error);
  }
}

void BluezCentral::later(Work work) {
  DispatchQueue::main().async(guarded(std::move(work)));
}

void BluezCentral::afterPause(Work work) {
  Timer::scheduledOn(RunLoop::main(), pauseBeforeRepetition, false,
                     [again = guarded(std::move(work))](Timer&) { again(); });
}

}  // namespace tarsil::bluez
