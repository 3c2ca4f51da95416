#include "tools/tarsil/replay/StationPorts.hpp"

#include <algorithm>
#include <numeric>

#include "doubles/ScriptedTerminal.hpp"
#include "tarsil/serial/ORSSerialPortManager.hpp"

namespace tarsil::cli {
namespace {

bool contains(const SerialDeviceRegistry::Devices& devices,
              const std::shared_ptr<const SerialDevice>& device) {
  return std::find(devices.begin(), devices.end(), device) != devices.end();
}

}  // namespace

StationPorts::StationPorts(ReplayWorld world)
    : world_(world), registry_(std::make_shared<VirtualDeviceRegistry>()), override_(registry_) {}

StationPorts::~StationPorts() {
  set({});
}

void StationPorts::set(const std::vector<std::string>& names) {
  std::map<std::string, std::size_t> occurrences;
  std::vector<Device> wanted;
  wanted.reserve(names.size());
  for (const auto& name : names) wanted.push_back(device(name, occurrences[name]++));

  const auto present = registry_->devices();
  for (const auto& old : present) {
    if (!contains(wanted, old)) registry_->remove(*old->calloutPath);
  }
  for (const auto& added : wanted) {
    if (!contains(present, added)) registry_->add(added);
  }
  world_.time.settle();
  if (!wanted.empty()) orderPorts(wanted);
}

const StationPorts::Device& StationPorts::device(const std::string& name, std::size_t occurrence) {
  auto& device = known_[{name, occurrence}];
  if (device) return device;
  const auto terminal = std::make_shared<doubles::ScriptedTerminal>();
  terminal->onWrite([&events = world_.events, name](const Bytes& bytes) {
    events.add(Json::array({"send", hexadecimal(bytes), name}));
  });
  auto made = std::make_shared<SerialDevice>();
  // Names are whatever the script likes; paths have to be different, and in ASCII.
  made->calloutPath = "/dev/replay/" + std::to_string(known_.size());
  made->dialinPath = made->calloutPath;
  made->terminalName = name;
  made->terminal = terminal;
  device = made;
  return device;
}

// Devices that stay keep their ports, and the manager lists what arrives at the end: the ports that it has
// are put into the script's order.
void StationPorts::orderPorts(const std::vector<Device>& wanted) const {
  auto& manager = ORSSerialPortManager::sharedSerialPortManager();
  const auto place = [&wanted](const std::shared_ptr<ORSSerialPort>& port) {
    return std::find(wanted.begin(), wanted.end(), port->device()) - wanted.begin();
  };
  auto ports = manager.availablePorts();
  const auto isBefore = [&place](const auto& one, const auto& other) { return place(one) < place(other); };
  if (std::is_sorted(ports.begin(), ports.end(), isBefore)) return;

  std::vector<std::size_t> indexes(ports.size());
  std::iota(indexes.begin(), indexes.end(), std::size_t{0});
  std::sort(ports.begin(), ports.end(), isBefore);
  manager.removeAvailablePortsAtIndexes(indexes);
  manager.insertAvailablePortsAtIndexes(ports, indexes);
}

}  // namespace tarsil::cli
