// Properties of any name and type, as a daemon might tell them of objects that come and go, against the plain
// rule: the last value of the right type counts.

#include "tarsil/bluetooth/bluez/detail/BluezObjects.hpp"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/expect.hpp"
#include "tarsil/bluetooth/uuid.hpp"

using namespace tarsil;
using namespace tarsil::bluez;

namespace {

constexpr std::array names{"Adapter",   "Address",          "Name",  "RSSI",
                           "Connected", "ServicesResolved", "UUIDs", "Powered"};
const std::array<std::string, 3> interfaces{BluezObjects::adapterInterface, BluezObjects::deviceInterface,
                                            BluezObjects::characteristicInterface};

/// Choices, one a byte; zeros behind the end.
class Choices {
 public:
  Choices(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  bool atEnd() const { return size_ == 0; }
  unsigned next(unsigned count) {
    if (size_ == 0) return 0;
    --size_;
    return *data_++ % count;
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
};

/// What a property may hold, and what of it each kind of reader finds.
sdbus::Variant valueFrom(Choices& choices) {
  switch (choices.next(7)) {
    case 0:
      return sdbus::Variant(choices.next(2) == 1);
    case 1:
      return sdbus::Variant(static_cast<std::int16_t>(choices.next(256) - 128));
    case 2:
      return sdbus::Variant(std::string(choices.next(4), 'n'));
    case 3:
      return sdbus::Variant(sdbus::ObjectPath("/" + std::string(choices.next(4), 'a')));
    case 4:
      return sdbus::Variant(
          std::vector<std::string>(choices.next(3), choices.next(2) == 1 ? "ffb0" : "none"));
    case 5:
      return sdbus::Variant(std::uint32_t{choices.next(256)});
    default:
      return sdbus::Variant(std::map<std::string, sdbus::Variant>{});
  }
}

Properties propertiesFrom(Choices& choices) {
  Properties properties;
  for (unsigned count = choices.next(4); count > 0; --count) {
    const char* name = names[choices.next(names.size())];
    properties[name] = valueFrom(choices);
  }
  return properties;
}

/// What is known of one device, told apart by nothing but names and types.
struct Known {
  std::map<std::string, sdbus::Variant> last;

  template <class T>
  void hear(const Properties& properties, const char* name) {
    const auto told = properties.find(name);
    if (told != properties.end() && told->second.containsValueOfType<T>()) last[name] = told->second;
  }

  template <class T>
  T value(const char* name) const {
    const auto known = last.find(name);
    return known == last.end() ? T() : known->second.get<T>();
  }

  void hear(const Properties& properties) {
    hear<sdbus::ObjectPath>(properties, "Adapter");
    hear<std::string>(properties, "Address");
    hear<std::string>(properties, "Name");
    hear<std::int16_t>(properties, "RSSI");
    hear<bool>(properties, "Connected");
    hear<bool>(properties, "ServicesResolved");
    hear<std::vector<std::string>>(properties, "UUIDs");
  }
};

void expectSame(const Device& device, const Known& known) {
  expect(device.adapter == known.value<sdbus::ObjectPath>("Adapter"));
  expect(device.address == known.value<std::string>("Address"));
  expect(device.name.has_value() == known.last.contains("Name"));
  expect(device.name.value_or("") == known.value<std::string>("Name"));
  expect(device.RSSI.has_value() == known.last.contains("RSSI"));
  expect(device.RSSI.value_or(0) == known.value<std::int16_t>("RSSI"));
  expect(device.connected == known.value<bool>("Connected"));
  expect(device.servicesResolved == known.value<bool>("ServicesResolved"));
  std::vector<std::string> services;
  for (const auto& UUID : known.value<std::vector<std::string>>("UUIDs")) {
    if (const auto text = bluetoothUUIDText(UUID)) services.push_back(*text);
  }
  expect(device.services == services);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Choices choices(data, size);
  BluezObjects objects;
  std::map<std::string, Known> devices;
  std::map<std::string, bool> adapters;
  while (!choices.atEnd()) {
    const std::string path = "/" + std::to_string(choices.next(3));
    const std::string& interface = interfaces[choices.next(interfaces.size())];
    const bool isDevice = interface == BluezObjects::deviceInterface;
    const bool isAdapter = interface == BluezObjects::adapterInterface;
    const unsigned deed = choices.next(4);
    if (deed == 0) {
      objects.remove(path, interface);
      if (isDevice) devices.erase(path);
      if (isAdapter) adapters.erase(path);
    } else {
      const Properties properties = propertiesFrom(choices);
      const bool losesRSSI = deed == 3 && choices.next(2) == 1;
      if (deed == 1) {
        objects.add(path, {{interface, properties}});
        if (isDevice) devices.try_emplace(path);
        if (isAdapter) adapters.try_emplace(path, false);
      } else {
        objects.change(path, interface, properties,
                       losesRSSI ? std::vector<std::string>{"RSSI"} : std::vector<std::string>{});
      }
      if (isDevice && devices.contains(path)) {
        devices[path].hear(properties);
        if (losesRSSI) devices[path].last.erase("RSSI");
      }
      const auto powered = properties.find("Powered");
      if (isAdapter && adapters.contains(path) && powered != properties.end() &&
          powered->second.containsValueOfType<bool>())
        adapters[path] = powered->second.get<bool>();
    }
    expect(objects.adapters() == adapters && objects.devices().size() == devices.size());
    for (const auto& [at, known] : devices) {
      expect(objects.device(at) != nullptr);
      expectSame(*objects.device(at), known);
    }
  }
  return 0;
}
