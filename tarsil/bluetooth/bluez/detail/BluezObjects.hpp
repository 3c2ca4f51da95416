#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/bluetooth/bluez/detail/properties.hpp"

namespace tarsil::bluez {

/// A remote device as BlueZ knows it at this moment.
struct Device {
  /// Path of the adapter that knows it.
  std::string adapter;
  std::string address;
  std::optional<std::string> name;
  /// In dBm; only while a scan hears it.
  std::optional<int> RSSI;
  /// As `bluetoothUUIDText` writes them.
  std::vector<std::string> services;
  bool connected = false;
  bool servicesResolved = false;
};

/// What BlueZ has told of its adapters and devices: the objects' state by path, kept up to date from its
/// answers and signals.
class BluezObjects {
 public:
  static constexpr const char* adapterInterface = "org.bluez.Adapter1";
  static constexpr const char* deviceInterface = "org.bluez.Device1";
  static constexpr const char* characteristicInterface = "org.bluez.GattCharacteristic1";
  /// Whether the interface is one of these, whose methods a central calls.
  static bool isCalled(const std::string& interface);

  /// Adds an object, or the interfaces that are new on it.
  void add(const std::string& path, const Interfaces& interfaces);
  void change(const std::string& path, const std::string& interface, const Properties& changed,
              const std::vector<std::string>& invalidated);
  void remove(const std::string& path, const std::string& interface);
  void clear();

  /// Whether each adapter is switched on, by path.
  const std::map<std::string, bool>& adapters() const { return adapters_; }
  const std::map<std::string, Device>& devices() const { return devices_; }
  /// Null when there is none at this path.
  const Device* device(const std::string& path) const;

 private:
  void changeAdapter(const std::string& path, const Properties& changed);
  void changeDevice(const std::string& path, const Properties& changed);

  std::map<std::string, bool> adapters_;
  std::map<std::string, Device> devices_;
};

}  // namespace tarsil::bluez
