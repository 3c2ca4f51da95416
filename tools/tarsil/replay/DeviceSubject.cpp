#include "tools/tarsil/replay/DeviceSubject.hpp"

#include "doubles/scriptedDevice.hpp"
#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tools/tarsil/replay/ReplayHost.hpp"
#include "tools/tarsil/replay/ScriptError.hpp"
#include "tools/tarsil/replay/deviceNamed.hpp"
#include "tools/tarsil/replay/deviceOperations.hpp"
#include "tools/tarsil/replay/portError.hpp"
#include "tools/tarsil/replay/receiving.hpp"

namespace tarsil::cli {
namespace {

std::shared_ptr<ORSSerialPort> scriptedPort(Events& events) {
  const auto terminal = std::make_shared<doubles::ScriptedTerminal>();
  terminal->onWrite([&events](const Bytes& bytes) { events.add(Json::array({"send", hexadecimal(bytes)})); });
  return ORSSerialPort::serialPortWithDevice(doubles::scriptedDevice("ttyReplay0", terminal));
}

}  // namespace

DeviceSubject::DeviceSubject(ReplayWorld world, const Operation& start) : world_(world) {
  const std::string name = start["device"].text();
  const auto state = start.find("port");
  const PortState firstState = state ? portState(*state) : PortState::open;
  device_ = deviceNamed(name);
  if (!device_) throw ScriptError("there is no device \"" + name + '"');
  driver_ = std::dynamic_pointer_cast<ORSSerialPortDelegate>(device_);
  port_ = scriptedPort(world_.events);
  if (const auto oximeter = std::dynamic_pointer_cast<MEDXINGSpO2>(device_)) {
    bluetooth_.emplace(world_.events, oximeter);
  }
  setPort(firstState);
  device_->kiv_delegate = replayHost(world_.events, "device", allHostSelectors());
  StressECGDeviceManager::share().delegate = replayHost(world_.events, "manager", allHostSelectors());
}

DeviceSubject::~DeviceSubject() {
  StressECGDeviceManager::share().delegate = nullptr;
  device_->kiv_delegate = nullptr;
  device_->setSerialPort(nullptr);
}

DeviceSubject::PortState DeviceSubject::portState(const Value& value) {
  const std::string state = value.text();
  if (state == "open") return PortState::open;
  if (state == "closed") return PortState::closed;
  if (state == "none") return PortState::none;
  throw ScriptError("a port is \"open\", \"closed\" or \"none\", not \"" + state + '"');
}

// The script says what the port is from now on. How it became so is no news for the driver, which therefore
// is not the port's delegate meanwhile.
void DeviceSubject::setPort(PortState state) {
  port_->setDelegate(nullptr);
  if (state == PortState::open) {
    port_->open();
  } else {
    port_->close();
  }
  world_.time.settle();
  device_->setSerialPort(state == PortState::none ? nullptr : port_);
}

void DeviceSubject::setDelegates(const Operation& operation) {
  const auto device = operation.find("device");
  const auto manager = operation.find("manager");
  const auto forDevice = device ? hostSelectors(*device) : std::nullopt;
  const auto forManager = manager ? hostSelectors(*manager) : std::nullopt;
  if (device) device_->kiv_delegate = replayHost(world_.events, "device", forDevice);
  if (manager) {
    StressECGDeviceManager::share().delegate = replayHost(world_.events, "manager", forManager);
  }
}

bool DeviceSubject::performPortCall(const Operation& operation) {
  const std::string& name = operation.name();
  if (name == "recv") {
    const Bytes chunk = operation["hex"].bytes();
    if (driver_) deliverChunk(world_.time, *port_, *driver_, chunk);
  } else if (name == "opened") {
    if (driver_) driver_->serialPortWasOpened(*port_);
  } else if (name == "removed") {
    if (driver_) driver_->serialPortWasRemovedFromSystem(*port_);
  } else if (name == "error") {
    const auto error = portError(operation, port_->path());
    if (driver_) driver_->serialPortDidEncounterError(*port_, error);
  } else {
    return false;
  }
  return true;
}

void DeviceSubject::perform(const Operation& operation) {
  if (performDeviceOperation(*device_, operation) || performPortCall(operation)) return;
  if (bluetooth_ && bluetooth_->perform(operation)) return;
  if (operation.name() == "delegate") return setDelegates(operation);
  if (operation.name() == "port") return setPort(portState(operation["state"]));
  refuse(operation, "a device");
}

}  // namespace tarsil::cli
