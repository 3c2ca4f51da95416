#include "tarsil/serial/ORSSerialPortManager.hpp"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <mutex>
#include <numeric>
#include <stdexcept>
#include <string>
#include <utility>

#include "tarsil/platform/SerialDeviceRegistry.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil {
namespace {

using Ports = ORSSerialPortManager::Ports;
using Devices = SerialDeviceRegistry::Devices;
using Indexes = std::vector<std::size_t>;

constexpr const char* availablePortsKey = "availablePorts";

bool contains(const Ports& ports, const ORSSerialPort& port) {
  return std::any_of(ports.begin(), ports.end(), [&](const auto& other) { return *other == port; });
}

Ports portsOf(const Devices& devices) {
  Ports ports;
  std::transform(devices.begin(), devices.end(), std::back_inserter(ports),
                 &ORSSerialPort::serialPortWithDevice);
  return ports;
}

void require(bool isInRange, const char* what) {
  if (!isInRange) throw std::out_of_range(what);
}

bool isAscending(const Indexes& indexes) {
  return std::adjacent_find(indexes.begin(), indexes.end(), std::greater_equal<>()) == indexes.end();
}

}  // namespace

/// Its mutex guards the two lists and is never held while ports, observers or the registry are called.
class ORSSerialPortManager::Implementation {
 public:
  Implementation(ORSSerialPortManager& manager, std::shared_ptr<SerialDeviceRegistry> registry)
      : manager_(manager), registry_(std::move(registry)) {}
  ~Implementation();
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  void start();
  /// The work of the exit handler.
  static void cleanUpAllBeforeExit();

  Ports ports() const {
    const std::lock_guard lock(mutex_);
    return ports_;
  }
  void insert(const Ports& ports, const Indexes& indexes);
  void remove(const Indexes& indexes);

  void sleep();
  void wake();

 private:
  /// The managers alive; never destroyed, since the exit handler needs it.
  struct Living {
    std::mutex mutex;
    std::vector<Implementation*> managers;
  };
  static Living& living() {
    static Living& managers = *new Living;
    return managers;
  }

  void beCleanedUpAtExit();
  void cleanupBeforeExit();
  void portsArrived(const Devices& devices);
  void portsRemoved(const Devices& devices);
  void post(const char* name, const char* key, const Ports& ports);

  ORSSerialPortManager& manager_;
  const std::shared_ptr<SerialDeviceRegistry> registry_;
  Observation watch_;

  mutable std::mutex mutex_;
  Ports ports_;
  Ports portsToReopenAfterSleep_;
};

// Starting and ending

ORSSerialPortManager& ORSSerialPortManager::sharedSerialPortManager() {
  // Never destroyed: the exit handler needs it, and so may other threads until the very end.
  static ORSSerialPortManager& manager = *new ORSSerialPortManager(SerialDeviceRegistry::shared());
  return manager;
}

ORSSerialPortManager::ORSSerialPortManager(std::shared_ptr<SerialDeviceRegistry> registry)
    : implementation_(std::make_unique<Implementation>(*this, std::move(registry))) {
  implementation_->start();
}

ORSSerialPortManager::~ORSSerialPortManager() = default;

void ORSSerialPortManager::Implementation::start() {
  // First watched, then listed: a device that arrives in between is in both and added once.
  watch_ = registry_->watch({.arrived = [this](const Devices& devices) { portsArrived(devices); },
                             .removed = [this](const Devices& devices) { portsRemoved(devices); }});
  ports_ = portsOf(registry_->devices());
  beCleanedUpAtExit();
}

ORSSerialPortManager::Implementation::~Implementation() {
  const std::lock_guard lock(living().mutex);
  std::erase(living().managers, this);
}

void ORSSerialPortManager::Implementation::beCleanedUpAtExit() {
  {
    const std::lock_guard lock(living().mutex);
    living().managers.push_back(this);
  }
  static const int refused = atExit(&Implementation::cleanUpAllBeforeExit);
  if (refused == 0) return;
  printLine("ORSSerialPort was unable to register its termination handler for serial port cleanup: " +
                std::to_string(errno),
            PrintedText::fixed);
}

void ORSSerialPortManager::Implementation::cleanUpAllBeforeExit() {
  beginProcessEnd();
  std::vector<Implementation*> managers;
  {
    const std::lock_guard lock(living().mutex);
    managers = living().managers;
  }
  for (auto* const manager : managers) manager->cleanupBeforeExit();
}

void ORSSerialPortManager::Implementation::cleanupBeforeExit() {
  const Ports ending = ports();
  for (const auto& port : ending) port->cleanupBeforeExit();
  Indexes all(ending.size());
  std::iota(all.begin(), all.end(), 0);
  remove(all);
}

// Devices come and go

void ORSSerialPortManager::Implementation::portsArrived(const Devices& devices) {
  Ports present = ports();
  Ports arrived = portsOf(devices);
  std::erase_if(arrived, [&](const auto& port) { return contains(present, *port); });
  Indexes indexes(arrived.size());
  std::iota(indexes.begin(), indexes.end(), present.size());
  insert(arrived, indexes);
  // Also when nothing of it was new: each piece of news from the registry is one notification.
  post(wasConnectedNotification, connectedPortsKey, arrived);
}

void ORSSerialPortManager::Implementation::portsRemoved(const Devices& devices) {
  // Fresh objects without a delegate: a client that holds a port of the device learns of the removal from
  // that port's own polling.
  const Ports removed = portsOf(devices);
  for (const auto& port : removed) port->cleanupAfterSystemRemoval();
  Indexes indexes;
  const Ports present = ports();
  for (std::size_t at = 0; at < present.size(); ++at) {
    if (contains(removed, *present[at])) indexes.push_back(at);
  }
  remove(indexes);
  post(wasDisconnectedNotification, disconnectedPortsKey, removed);
}

void ORSSerialPortManager::Implementation::post(const char* name, const char* key, const Ports& ports) {
  NotificationCenter::defaultCenter().post({.name = name, .object = &manager_, .userInfo = {{key, ports}}});
}

// The list

void ORSSerialPortManager::Implementation::insert(const Ports& ports, const Indexes& indexes) {
  if (ports.size() != indexes.size() || !isAscending(indexes))
    throw std::logic_error("as many indexes as ports, in ascending order");
  if (std::find(ports.begin(), ports.end(), nullptr) != ports.end()) throw std::logic_error("not a port");
  if (ports.empty()) return;
  {
    const std::lock_guard lock(mutex_);
    // The last one is the highest, and has all the others below it.
    require(indexes.back() < ports_.size() + ports.size(), "index beyond the end of availablePorts");
    for (std::size_t at = 0; at < ports.size(); ++at)
      ports_.insert(ports_.begin() + static_cast<std::ptrdiff_t>(indexes[at]), ports[at]);
  }
  manager_.announce({availablePortsKey, KeyChange::Kind::insertion, indexes});
}

void ORSSerialPortManager::Implementation::remove(const Indexes& indexes) {
  if (!isAscending(indexes)) throw std::logic_error("indexes in ascending order");
  if (indexes.empty()) return;
  // Let go of after the lock: they may be the last references.
  Ports removed;
  {
    const std::lock_guard lock(mutex_);
    require(indexes.back() < ports_.size(), "index beyond the end of availablePorts");
    for (auto at = indexes.rbegin(); at != indexes.rend(); ++at) {
      const auto position = ports_.begin() + static_cast<std::ptrdiff_t>(*at);
      removed.push_back(std::move(*position));
      ports_.erase(position);
    }
  }
  manager_.announce({availablePortsKey, KeyChange::Kind::removal, indexes});
}

ORSSerialPortManager::Ports ORSSerialPortManager::availablePorts() const {
  return implementation_->ports();
}

std::size_t ORSSerialPortManager::countOfAvailablePorts() const {
  return availablePorts().size();
}

std::shared_ptr<ORSSerialPort> ORSSerialPortManager::objectInAvailablePortsAtIndex(std::size_t index) const {
  const Ports ports = availablePorts();
  require(index < ports.size(), "index beyond the end of availablePorts");
  return ports[index];
}

void ORSSerialPortManager::insertObjectInAvailablePortsAtIndex(std::shared_ptr<ORSSerialPort> port,
                                                               std::size_t index) {
  implementation_->insert({std::move(port)}, {index});
}

void ORSSerialPortManager::insertAvailablePortsAtIndexes(const Ports& ports,
                                                         const std::vector<std::size_t>& indexes) {
  implementation_->insert(ports, indexes);
}

void ORSSerialPortManager::removeObjectFromAvailablePortsAtIndex(std::size_t index) {
  implementation_->remove({index});
}

void ORSSerialPortManager::removeAvailablePortsAtIndexes(const std::vector<std::size_t>& indexes) {
  implementation_->remove(indexes);
}

// Sleeping and waking

void ORSSerialPortManager::systemWillSleep(const Notification& /*notification*/) {
  implementation_->sleep();
}

void ORSSerialPortManager::systemDidWake(const Notification& /*notification*/) {
  implementation_->wake();
}

void ORSSerialPortManager::Implementation::sleep() {
  for (const auto& port : ports()) {
    if (!port->isOpen() || !port->close()) continue;
    const std::lock_guard lock(mutex_);
    portsToReopenAfterSleep_.push_back(port);
  }
}

void ORSSerialPortManager::Implementation::wake() {
  Ports asleep;
  {
    const std::lock_guard lock(mutex_);
    asleep.swap(portsToReopenAfterSleep_);
  }
  for (const auto& port : asleep) port->open();
}

}  // namespace tarsil
