#include "tarsil/bluetooth/bluez/detail/BluezListener.hpp"

namespace tarsil::bluez {
namespace {

std::string fromDaemon(const std::string& interface, const std::string& signal) {
  return "type='signal',sender='org.bluez',interface='" + interface + "',member='" + signal + "'";
}

}  // namespace

void BluezListener::listen(SystemBus& bus, const Lifeline& life) {
  listenToDaemon(bus, life);
  listenToProperties(bus, life);
  listenToObjects(bus, life);
  listenToReasons(bus, life);
}

void BluezListener::listenToDaemon(SystemBus& bus, const Lifeline& life) {
  bus.subscribe("type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='org.bluez'",
                [this, life](sdbus::Message& signal) -> Work {
                  std::string name;
                  std::string before;
                  std::string now;
                  signal >> name >> before >> now;
                  return life.guarded([this, before, now] {
                    if (!before.empty()) daemonVanished();
                    if (!now.empty()) daemonAppeared();
                  });
                });
}

void BluezListener::listenToProperties(SystemBus& bus, const Lifeline& life) {
  bus.subscribe(fromDaemon("org.freedesktop.DBus.Properties", "PropertiesChanged"),
                [this, life](sdbus::Message& signal) -> Work {
                  std::string interface;
                  Properties properties;
                  std::vector<std::string> invalidated;
                  signal >> interface >> properties >> invalidated;
                  return life.guarded([this, path = signal.getPath(), interface, properties, invalidated] {
                    changed(path, interface, properties, invalidated);
                  });
                });
}

void BluezListener::listenToObjects(SystemBus& bus, const Lifeline& life) {
  bus.subscribe(fromDaemon("org.freedesktop.DBus.ObjectManager", "InterfacesAdded"),
                [this, life](sdbus::Message& signal) -> Work {
                  sdbus::ObjectPath path;
                  Interfaces interfaces;
                  signal >> path >> interfaces;
                  return life.guarded([this, path, interfaces] { added(path, interfaces); });
                });
  bus.subscribe(fromDaemon("org.freedesktop.DBus.ObjectManager", "InterfacesRemoved"),
                [this, life](sdbus::Message& signal) -> Work {
                  sdbus::ObjectPath path;
                  std::vector<std::string> interfaces;
                  signal >> path >> interfaces;
                  return life.guarded([this, path, interfaces] { removed(path, interfaces); });
                });
}

void BluezListener::listenToReasons(SystemBus& bus, const Lifeline& life) {
  bus.subscribe(fromDaemon("org.bluez.Device1", "Disconnected"),
                [this, life](sdbus::Message& signal) -> Work {
                  std::string reason;
                  std::string text;
                  signal >> reason >> text;
                  return life.guarded(
                      [this, path = signal.getPath(), reason, text] { reasonTold(path, reason, text); });
                });
}

}  // namespace tarsil::bluez
