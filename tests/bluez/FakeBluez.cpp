#include "tests/bluez/FakeBluez.hpp"

#include <algorithm>
#include <utility>

// libsystemd keeps the seed of its hash tables without a lock, and was built without the sanitizer, which
// sees its getrandom: a BlueZ on a thread of its own fetches one beside the main thread.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() {
  return "race:^getrandom$";
}

namespace tarsil {
namespace {

constexpr const char* adapterInterface = "org.bluez.Adapter1";
constexpr const char* deviceInterface = "org.bluez.Device1";
constexpr const char* serviceInterface = "org.bluez.GattService1";
constexpr const char* characteristicInterface = "org.bluez.GattCharacteristic1";

}  // namespace

FakeBluez::FakeBluez(Objects objects, const DispatchQueue& queue)
    : connection_(sdbus::createSystemBusConnection()) {
  if (objects == Objects::handedOut) handOutObjects();
  connection_->requestName("org.bluez");
  source_ = DispatchSource::read(connection_->getEventLoopPollData().fd, queue);
  source_->setEventHandler([this] { process(); });
  // The descriptor belongs to the connection, which therefore outlives the source.
  source_->setCancelHandler([connection = connection_] {});
  source_->resume();
  queue.async([this, source = source_] {
    if (!source->isCancelled()) process();
  });
}

FakeBluez::~FakeBluez() {
  source_->cancel();
  objects_.clear();
  try {
    connection_->releaseName("org.bluez");
  } catch (const sdbus::Error&) {
    // The test has ended the bus.
  }
}

void FakeBluez::handOutObjects() {
  connection_->addObjectManager("/", sdbus::floating_slot);
  handsOutObjects_ = true;
}

std::string FakeBluez::addAdapter(const std::string& name, bool powered) {
  const std::string path = "/org/bluez/" + name;
  powered_[path] = powered;
  auto adapter = object(path);
  adapter->registerProperty("Powered").onInterface(adapterInterface).withGetter([this, path] {
    return powered_[path];
  });
  adapter->registerMethod("SetDiscoveryFilter")
      .onInterface(adapterInterface)
      .implementedAs([this, path](const std::map<std::string, sdbus::Variant>& filter) {
        std::string call = "SetDiscoveryFilter " + path;
        for (const auto& [property, value] : filter) {
          call += " " + property + "=";
          call += value.containsValueOfType<std::string>() ? value.get<std::string>()
                                                           : std::to_string(value.get<bool>());
        }
        calls_.push_back(call);
      });
  implement(*adapter, adapterInterface, "StartDiscovery");
  implement(*adapter, adapterInterface, "StopDiscovery");
  publish(path, std::move(adapter));
  return path;
}

std::string FakeBluez::addDevice(const std::string& adapter, const Device& device) {
  std::string path = adapter + "/dev_" + device.address;
  std::replace(path.begin(), path.end(), ':', '_');
  devices_[path] = device;
  auto made = object(path);
  made->registerProperty("Adapter").onInterface(deviceInterface).withGetter([adapter] {
    return sdbus::ObjectPath(adapter);
  });
  made->registerProperty("Address").onInterface(deviceInterface).withGetter([this, path] {
    return devices_[path].address;
  });
  made->registerProperty("UUIDs").onInterface(deviceInterface).withGetter([] {
    return std::vector<std::string>{"0000ffb0-0000-1000-8000-00805f9b34fb"};
  });
  made->registerProperty("Connected").onInterface(deviceInterface).withGetter([this, path] {
    return devices_[path].connected;
  });
  made->registerProperty("ServicesResolved").onInterface(deviceInterface).withGetter([this, path] {
    return devices_[path].servicesResolved;
  });
  if (device.name) {
    made->registerProperty("Name").onInterface(deviceInterface).withGetter([name = *device.name] {
      return name;
    });
  }
  if (device.RSSI) {
    made->registerProperty("RSSI").onInterface(deviceInterface).withGetter([RSSI = *device.RSSI] {
      return RSSI;
    });
  }
  implement(*made, deviceInterface, "Connect");
  implement(*made, deviceInterface, "Disconnect");
  publish(path, std::move(made));
  return path;
}

std::string FakeBluez::addService(const std::string& device, const std::string& name,
                                  const std::string& UUID) {
  const std::string path = device + "/" + name;
  auto service = object(path);
  service->registerProperty("UUID").onInterface(serviceInterface).withGetter([UUID] { return UUID; });
  service->registerProperty("Device").onInterface(serviceInterface).withGetter([device] {
    return sdbus::ObjectPath(device);
  });
  publish(path, std::move(service));
  return path;
}

std::string FakeBluez::addCharacteristic(const std::string& service, const std::string& name,
                                         const std::string& UUID) {
  const std::string path = service + "/" + name;
  auto characteristic = object(path);
  characteristic->registerProperty("UUID").onInterface(characteristicInterface).withGetter([UUID] {
    return UUID;
  });
  characteristic->registerProperty("Service").onInterface(characteristicInterface).withGetter([service] {
    return sdbus::ObjectPath(service);
  });
  implement(*characteristic, characteristicInterface, "StartNotify");
  implement(*characteristic, characteristicInterface, "StopNotify");
  publish(path, std::move(characteristic));
  return path;
}

void FakeBluez::remove(const std::string& path) {
  // From below, as BlueZ does.
  for (auto object = objects_.rbegin(); object != objects_.rend(); ++object) {
    if (object->first.starts_with(path)) object->second->emitInterfacesRemovedSignal();
  }
  std::erase_if(objects_, [&](const auto& object) { return object.first.starts_with(path); });
}

void FakeBluez::removeInterface(const std::string& path, const std::string& interface) {
  objects_.at(path)->emitInterfacesRemovedSignal({interface});
}

void FakeBluez::setPowered(const std::string& adapter, bool powered) {
  powered_[adapter] = powered;
  objects_.at(adapter)->emitPropertiesChangedSignal(adapterInterface, {"Powered"});
}

void FakeBluez::setFlag(const std::string& device, const std::string& property, bool value) {
  (property == "Connected" ? devices_[device].connected : devices_[device].servicesResolved) = value;
  objects_.at(device)->emitPropertiesChangedSignal(deviceInterface, {property});
}

void FakeBluez::announce(const std::string& path, const std::string& interface,
                         const std::map<std::string, sdbus::Variant>& changed,
                         const std::vector<std::string>& invalidated) {
  auto& object = *objects_.at(path);
  auto signal = object.createSignal("org.freedesktop.DBus.Properties", "PropertiesChanged");
  signal << interface << changed << invalidated;
  object.emitSignal(signal);
}

void FakeBluez::notify(const std::string& characteristic, const Bytes& value) {
  announce(characteristic, characteristicInterface, {{"Value", sdbus::Variant(value)}});
}

void FakeBluez::tellReason(const std::string& device, const std::string& name, const std::string& message) {
  auto signal = objects_.at(device)->createSignal(deviceInterface, "Disconnected");
  signal << name << message;
  objects_.at(device)->emitSignal(signal);
}

void FakeBluez::failNext(const std::string& method, const std::vector<std::string>& errors) {
  failures_[method].assign(errors.begin(), errors.end());
}

void FakeBluez::answer(const std::string& method, const std::optional<std::string>& error) {
  for (auto& result : std::exchange(held_[method], {})) {
    try {
      error ? result.returnError(sdbus::Error(*error, "held")) : result.returnResults();
    } catch (const sdbus::Error&) {
      // Its caller wants no answer.
    }
  }
  held_.erase(method);
}

void FakeBluez::relent() {
  failures_.clear();
  while (!held_.empty()) answer(std::string(held_.begin()->first));
}

std::vector<std::string> FakeBluez::takeCalls() {
  return std::exchange(calls_, {});
}

std::size_t FakeBluez::count(const std::string& method) const {
  return static_cast<std::size_t>(std::count_if(
      calls_.begin(), calls_.end(), [&](const auto& call) { return call.starts_with(method + " "); }));
}

void FakeBluez::publish(const std::string& path, std::unique_ptr<sdbus::IObject> object) {
  object->finishRegistration();
  if (handsOutObjects_) object->emitInterfacesAddedSignal();
  objects_[path] = std::move(object);
}

void FakeBluez::implement(sdbus::IObject& object, const std::string& interface, const std::string& method) {
  object.registerMethod(method).onInterface(interface).implementedAs(
      [this, method, path = object.getObjectPath()](sdbus::Result<>&& result) {
        called(method, path, std::move(result));
      });
}

void FakeBluez::called(const std::string& method, const std::string& path, sdbus::Result<>&& result) {
  calls_.push_back(method + " " + path);
  if (const auto held = held_.find(method); held != held_.end())
    return held->second.push_back(std::move(result));
  auto& failures = failures_[method];
  if (failures.empty()) return result.returnResults();
  result.returnError(sdbus::Error(failures.front(), "as the test says"));
  failures.pop_front();
}

void FakeBluez::process() {
  try {
    while (connection_->processPendingRequest()) {
    }
  } catch (const sdbus::Error&) {
    // The test has ended the bus.
    source_->cancel();
  }
}

}  // namespace tarsil
