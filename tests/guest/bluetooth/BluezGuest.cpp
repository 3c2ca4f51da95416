#include "tests/guest/bluetooth/BluezGuest.hpp"

#include <sdbus-c++/sdbus-c++.h>
#include <signal.h>

#include <filesystem>

namespace tarsil {
namespace {

constexpr const char* adapterInterface = "org.bluez.Adapter1";

// Another program's view of the bus, so that nothing of the library under test is in the way.
class OtherProgram {
 public:
  std::string adapterPath() {
    std::map<sdbus::ObjectPath, std::map<std::string, std::map<std::string, sdbus::Variant>>> objects;
    sdbus::createProxy(*connection_, "org.bluez", "/")
        ->callMethod("GetManagedObjects")
        .onInterface("org.freedesktop.DBus.ObjectManager")
        .storeResultsTo(objects);
    for (const auto& [path, interfaces] : objects) {
      if (interfaces.contains(adapterInterface)) return path;
    }
    return "";
  }

  bool isScanning() {
    return sdbus::createProxy(*connection_, "org.bluez", adapterPath())
        ->getProperty("Discovering")
        .onInterface(adapterInterface)
        .get<bool>();
  }

  void connect(const std::string& device) {
    sdbus::createProxy(*connection_, "org.bluez", adapterPath() + "/" + device)
        ->callMethod("Connect")
        .onInterface("org.bluez.Device1");
  }

  void setPowered(bool on) {
    sdbus::createProxy(*connection_, "org.bluez", adapterPath())
        ->setProperty("Powered")
        .onInterface(adapterInterface)
        .toValue(on);
  }

 private:
  std::unique_ptr<sdbus::IConnection> connection_ = sdbus::createSystemBusConnection();
};

}  // namespace

BluezGuest::BluezGuest(const GuestPrograms& programs) {
  std::filesystem::create_directories("/run/dbus");
  // Nothing is remembered from an earlier one.
  std::filesystem::remove_all("/var/lib/bluetooth");
  std::filesystem::create_directories("/var/lib/bluetooth");
  bus_ = std::make_unique<ChildProcess>(
      std::vector<std::string>{"dbus-daemon", "--config-file=" + programs.busConfiguration, "--nofork",
                               "--nopidfile", "--print-address=1"});
  bus_->waitForLine("unix:");
  radio_ = std::make_unique<ChildProcess>(std::vector{programs.simulator});
  radio_->waitForLine("plugged in");
  startDaemon();
}

void BluezGuest::switchBluetooth(bool on) {
  OtherProgram().setPowered(on);
}

bool BluezGuest::isScanning() {
  return OtherProgram().isScanning();
}

void BluezGuest::connectOximeter() {
  OtherProgram().connect("dev_C0_11_22_33_44_55");
}

void BluezGuest::stopDaemon() {
  daemon_->signal(SIGTERM);
  daemon_->wait();
}

void BluezGuest::startDaemon() {
  daemon_ =
      std::make_unique<ChildProcess>(std::vector<std::string>{"/usr/libexec/bluetooth/bluetoothd", "-n"});
}

}  // namespace tarsil
