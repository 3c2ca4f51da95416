#include "tarsil/bluetooth/bluez/detail/BluezCentral.hpp"

#include <algorithm>
#include <utility>

#include "tarsil/bluetooth/bluez/detail/bluezError.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil::bluez {

std::shared_ptr<BluezCentral> BluezCentral::create() {
  std::shared_ptr<BluezCentral> central(new BluezCentral);
  central->start();
  return central;
}

void BluezCentral::start() {
  context_.life = Lifeline(weak_from_this());
  try {
    context_.bus =
        SystemBus::open(context_.life.guarded([this] { loseAdapters(BluetoothState::unsupported); }));
    listen(*context_.bus, context_.life);
    // Asked before anything else is: the question for BlueZ's objects may make the system start a daemon,
    // which takes long where it cannot.
    if (!context_.bus->hasService()) setState(BluetoothState::unsupported);
  } catch (const sdbus::Error& error) {
    printLine("Bluetooth: no system bus: " + error.getMessage(), PrintedText::diagnostic);
    context_.bus = nullptr;
    return setState(BluetoothState::unsupported);
  }
  refresh();
}

void BluezCentral::setDelegate(std::weak_ptr<BluetoothCentralDelegate> delegate) {
  delegate_ = std::move(delegate);
  owesState_ = context_.state != BluetoothState::unknown;
  context_.life.later([this] {
    if (owesState_) tellState();
  });
}

// ---- what BlueZ says ----

void BluezCentral::daemonVanished() {
  // First of all: a delegate that runs the loop may let the next daemon in.
  context_.bus->forgetAll();
  loseAdapters(BluetoothState::resetting);
}

void BluezCentral::refresh() {
  context_.bus->getManagedObjects(context_.life.guarded(
      [this](const std::optional<BusError>& error, const Objects& objects) { refreshed(error, objects); }));
}

void BluezCentral::refreshed(const std::optional<BusError>& error, const Objects& objects) {
  if (!error) {
    for (const auto& [path, interfaces] : objects) context_.objects.add(path, interfaces);
    return chooseAdapter();
  }
  const auto failure = failureOf(*error);
  if (failure == Failure::refused) return setState(BluetoothState::unauthorized);
  // A daemon that was there before is expected back.
  if (context_.state == BluetoothState::unknown) setState(BluetoothState::unsupported);
  if (failure != Failure::noDaemon) context_.life.afterPause([this] { refresh(); });
}

void BluezCentral::added(const std::string& path, const Interfaces& interfaces) {
  context_.objects.add(path, interfaces);
  if (interfaces.contains(BluezObjects::adapterInterface)) chooseAdapter();
  const auto device = interfaces.find(BluezObjects::deviceInterface);
  if (device != interfaces.end()) deviceChanged(path, device->second);
}

void BluezCentral::changed(const std::string& path, const std::string& interface,
                           const Properties& properties, const std::vector<std::string>& invalidated) {
  if (interface == BluezObjects::characteristicInterface) {
    if (const auto value = property<Bytes>(properties, "Value")) valueChanged(path, *value);
    return;
  }
  context_.objects.change(path, interface, properties, invalidated);
  // An adapter has other properties, which say nothing of its state.
  if (interface == BluezObjects::adapterInterface && properties.contains("Powered")) chooseAdapter();
  if (interface == BluezObjects::deviceInterface) deviceChanged(path, properties);
}

void BluezCentral::removed(const std::string& path, const std::vector<std::string>& interfaces) {
  // First of all: a delegate that runs the loop may let the object come back, and be called. One that only
  // loses another interface, as a device does its battery with each connection, still answers.
  if (std::any_of(interfaces.begin(), interfaces.end(), BluezObjects::isCalled)) context_.bus->forget(path);
  for (const auto& interface : interfaces) {
    context_.objects.remove(path, interface);
    if (interface == BluezObjects::adapterInterface) chooseAdapter();
    if (interface == BluezObjects::deviceInterface) deviceRemoved(path);
  }
}

void BluezCentral::reasonTold(const std::string& path, const std::string& reason, const std::string& text) {
  const auto peripheral = peripherals_.heldAt(path);
  if (!peripheral) return;
  peripheral->reasonName = reason;
  peripheral->reasonText = text;
}

void BluezCentral::deviceChanged(const std::string& path, const Properties& properties) {
  const Device* device = context_.device(path);
  if (device == nullptr) return;
  const auto peripheral = peripherals_.withAddress(device->address);
  if (peripheral && device->name) peripheral->lastName = device->name;

  const bool mayBeNew =
      properties.contains("RSSI") || properties.contains("Name") || properties.contains("Connected");
  if (mayBeNew) report(path);

  // The delegate may have done anything: look again, here and below.
  const auto isMine = [&] { return peripherals_.holds(peripheral) && context_.device(path) != nullptr; };
  if (isMine()) connector_.changed(peripheral, properties);
  const bool resolved = property<bool>(properties, "ServicesResolved").value_or(false);
  if (resolved && isMine()) gatt_.servicesResolved(peripheral);
}

void BluezCentral::deviceRemoved(const std::string& path) {
  reported_.erase(path);
  if (const auto peripheral = peripherals_.heldAt(path)) connector_.removed(peripheral);
}

void BluezCentral::valueChanged(const std::string& path, const Bytes& value) {
  for (const auto& peripheral : peripherals_.held()) {
    const auto characteristic = peripheral->characteristicAt(path);
    if (characteristic) return gatt_.notified(peripheral, characteristic, value);
  }
}

// ---- state ----

void BluezCentral::chooseAdapter() {
  const std::string best = bestAdapter();
  const bool moved = best != std::exchange(context_.adapter, best);
  const auto state = adapterState();
  if (!moved || !context_.isOn() || state != BluetoothState::poweredOn) return setState(state);
  // From one adapter that is on to another: the scan goes on.
  endDiscovery();
  connector_.move();
}

// The one in use, unless another is on while that one is not.
std::string BluezCentral::bestAdapter() const {
  const auto& adapters = context_.objects.adapters();
  auto best = adapters.find(context_.adapter);
  for (auto candidate = adapters.begin(); candidate != adapters.end(); ++candidate) {
    if (best == adapters.end() || (candidate->second && !best->second)) best = candidate;
  }
  return best == adapters.end() ? "" : best->first;
}

BluetoothState BluezCentral::adapterState() const {
  const auto adapter = context_.objects.adapters().find(context_.adapter);
  if (adapter == context_.objects.adapters().end()) return BluetoothState::unsupported;
  return adapter->second ? BluetoothState::poweredOn : BluetoothState::poweredOff;
}

void BluezCentral::loseAdapters(BluetoothState state) {
  context_.objects.clear();
  context_.adapter.clear();
  setState(state);
}

void BluezCentral::setState(BluetoothState state) {
  if (state == context_.state) return;
  const bool lost = context_.isOn();
  context_.state = state;
  if (lost) {
    wantsScan_ = false;
    endDiscovery();
    connector_.loseAll();
  }
  // A delegate that hears of a lost connection may have made the loop run, and the state move on.
  if (state == context_.state) tellState();
}

void BluezCentral::tellState() {
  owesState_ = false;
  if (const auto host = delegate_.lock()) host->centralManagerDidUpdateState(*this);
}

// ---- scan ----

void BluezCentral::scanForPeripherals() {
  if (!context_.isOn()) return;
  wantsScan_ = true;
  reported_.clear();
  discovery_.reconcile();
  // Those that an ongoing scan hears already will not be told of again.
  context_.life.later([this] {
    std::vector<std::string> paths;
    for (const auto& [path, device] : context_.objects.devices()) paths.push_back(path);
    for (const auto& path : paths) report(path);
  });
}

void BluezCentral::stopScan() {
  wantsScan_ = false;
  discovery_.reconcile();
}

void BluezCentral::endDiscovery() {
  discovery_.reset();
  reported_.clear();
}

// A device is in reach while BlueZ knows how strong its signal is, or has a connection to it: a connected one
// does not advertise. (A program that had connected it may be gone.) It is told once, and again under a new
// name.
void BluezCentral::report(const std::string& path) {
  const Device* device = context_.device(path);
  if (!wantsScan_ || device == nullptr || (!device->RSSI && !device->connected)) return;
  const auto before = reported_.find(path);
  if (before != reported_.end() && before->second == device->name) return;
  reported_[path] = device->name;

  const auto peripheral =
      peripherals_.of(*device, std::shared_ptr<BluezGattClient>(shared_from_this(), &gatt_));
  const BluetoothAdvertisement advertisement{device->name, device->services};
  const auto host = delegate_.lock();
  if (host) host->centralManagerDidDiscoverPeripheral(*this, peripheral, advertisement, device->RSSI);
}

// ---- connections ----

void BluezCentral::connect(const std::shared_ptr<BluetoothPeripheral>& peripheral) {
  if (const auto own = peripherals_.own(peripheral)) connector_.connect(own);
}

void BluezCentral::cancelPeripheralConnection(const std::shared_ptr<BluetoothPeripheral>& peripheral) {
  if (const auto own = peripherals_.own(peripheral)) connector_.cancel(own);
}

void BluezCentral::didConnect(const Peripheral& peripheral) {
  if (const auto host = delegate_.lock()) host->centralManagerDidConnectPeripheral(*this, peripheral);
}

void BluezCentral::didFailToConnect(const Peripheral& peripheral, const BluetoothError& error) {
  const auto host = delegate_.lock();
  if (host) host->centralManagerDidFailToConnectPeripheral(*this, peripheral, error);
}

void BluezCentral::didDisconnect(const Peripheral& peripheral, const std::optional<BluetoothError>& error) {
  const auto host = delegate_.lock();
  if (host) host->centralManagerDidDisconnectPeripheral(*this, peripheral, error);
}

}  // namespace tarsil::bluez
