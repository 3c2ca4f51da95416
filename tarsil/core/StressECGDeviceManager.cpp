#include "tarsil/core/StressECGDeviceManager.hpp"

#include <algorithm>
#include <chrono>
#include <utility>

#include "tarsil/bluetooth/BluetoothCentral.hpp"
#include "tarsil/bluetooth/BluetoothPeripheral.hpp"
#include "tarsil/core/StressDeviceType.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/serial/ORSSerialPortManager.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;

constexpr Duration portRefreshInterval = 2s;

[[noreturn]] void unexpectedPortType(PortType type) {
  fatalError("unexpected value of PortType: " + std::to_string(static_cast<std::int64_t>(type)));
}

/// Stores the new list and tells the closure, when the list differs from the one that was reported last.
void reportChange(const StressECGDeviceManager::Names& names, StressECGDeviceManager::Names& reported,
                  const std::function<void(const StressECGDeviceManager::Names&)>& closure) {
  const auto isNew = [&](const std::string& name) {
    return std::find(reported.begin(), reported.end(), name) == reported.end();
  };
  // A list that was only put into another order counts as the same one.
  if (names.size() == reported.size() && std::none_of(names.begin(), names.end(), isNew)) return;

  reported = names;
  if (!closure) return;
  const auto call = closure;  // the host may replace the closure while it runs
  call(names);
}

/// Applies the device's line settings to its port and opens it. Without stop bits or parity the port stays
/// closed, and nobody is told: a device that was made without line settings has no line to open.
void openWithSettings(const KivStressDevice& device, ORSSerialPort& port) {
  if (!device.stopbits || !device.parity) return;
  if (*device.stopbits < 0) fatalError("negative number of stop bits: " + std::to_string(*device.stopbits));

  // The data bits stay the port's own 8, which every device of the catalogue works with.
  port.setBaudRate(static_cast<std::uint64_t>(device.baud));
  port.setNumberOfStopBits(static_cast<std::uint64_t>(*device.stopbits));
  // Every device of the catalogue works without parity, so the device's own value is not passed on.
  port.setParity(ORSSerialPortParity::None);
  port.open();
}

void bindAndOpen(KivStressDevice& device, ORSSerialPort& port) {
  // The host may observe the port, and choose others when it hears of this one.
  const auto keptDevice = device.shared_from_this();
  const auto keptPort = port.shared_from_this();
  device.setSerialPort(keptPort);
  openWithSettings(device, port);
}

}  // namespace

StressECGDeviceManager::StressECGDeviceManager(DeviceCatalogue catalogue, SharedByManagers shared)
    : catalogue_(std::move(catalogue)), shared_(shared) {}

StressECGDeviceManager::~StressECGDeviceManager() {
  if (timer) timer->invalidate();
}

StressECGDeviceManager::Names StressECGDeviceManager::getDeivceType() const {
  return {std::string(rawValue(StressDeviceType::Treadmill)),
          std::string(rawValue(StressDeviceType::Ergometer))};
}

StressECGDeviceManager::OptionalDevices StressECGDeviceManager::getDeviceByType(const std::string& type) {
  const auto kind = stressDeviceTypeFromRawValue(type);
  if (!kind) return std::nullopt;
  devices = withLog(catalogue_.makeExerciseDevices(*kind));
  return devices;
}

StressECGDeviceManager::OptionalDevices StressECGDeviceManager::getSpO2Devices() {
  SpO2Devices = withLog(catalogue_.makeOximeters());
  return SpO2Devices;
}

StressECGDeviceManager::Names StressECGDeviceManager::getPort(bool isSpO2) {
  getPortIsSpO2 = isSpO2;
  if (!ports) ports = portManager().availablePorts();
  if (!timer) timer = Timer::scheduled(portRefreshInterval, true, [this](Timer&) { port(); });
  return currentNames();
}

void StressECGDeviceManager::port() {
  // The host may drop a manager of its own within a closure.
  const auto kept = weak_from_this().lock();
  ports = portManager().availablePorts();
  const Names names = currentNames();
  if (getPortIsSpO2) reportChange(names, portNamesWithSpO2, getPortsNameWithSpO2);
  reportChange(names, portNames, getPortsName);
}

ORSSerialPortManager& StressECGDeviceManager::portManager() const {
  return shared_.portManager != nullptr ? *shared_.portManager
                                        : ORSSerialPortManager::sharedSerialPortManager();
}

StressECGDeviceManager::Devices StressECGDeviceManager::withLog(Devices made) const {
  if (shared_.log == nullptr) return made;
  for (const auto& device : made) device->fm = *shared_.log;
  return made;
}

StressECGDeviceManager::Names StressECGDeviceManager::currentNames() const {
  Names names;
  for (const auto& port : *ports) names.push_back(port->name());
  return names;
}

std::shared_ptr<KivStressDevice> StressECGDeviceManager::getSelected(const std::string& device,
                                                                     PortType type) {
  if (type == PortType::device) {
    // Going on after a match lets the last of several win.
    for (const auto& candidate : devices) {
      if (candidate->name == device) currentDevice = candidate;
    }
    return currentDevice;
  }
  if (type == PortType::SpO2) {
    if (SpO2Devices.empty()) getSpO2Devices();
    for (const auto& candidate : SpO2Devices) {
      if (candidate->name != device) continue;
      SpO2D = candidate;
      printLine("chosen SpO2 device: " + *candidate->name, PrintedText::diagnostic);
    }
    return SpO2D;
  }
  // There is one monitor, and `selectedPort` makes it: nothing to choose from, even when there is one.
  return nullptr;
}

void StressECGDeviceManager::selectedPort(const std::string& port, PortType type) {
  if (port.empty() || !ports) {
    printLine("串口未初始化 请先调用getPortWithIsSpO2方法", PrintedText::fixed);
    return;
  }
  // Going on after a match lets the last of several win.
  for (const auto& candidate : *ports) {
    if (candidate->name() != port) continue;
    if (type == PortType::device) devicePort = candidate;
    if (type == PortType::SpO2) SpO2Port = candidate;
    if (type == PortType::BP) {
      BPD = withLog({catalogue_.bloodPressureMonitor.makeDevice()}).front();
      BPPort = candidate;
    }
  }
}

bool StressECGDeviceManager::openPort(PortType type) {
  if (type == PortType::device && devicePort && currentDevice) {
    bindAndOpen(*currentDevice, *devicePort);
    return true;
  }
  if (type == PortType::BP && BPPort && BPD) {
    bindAndOpen(*BPD, *BPPort);
    return true;
  }
  if (type == PortType::SpO2 && SpO2D) {
    // The Bluetooth oximeter needs no port: there is nothing to open, and that is no failure.
    if (SpO2Port) bindAndOpen(*SpO2D, *SpO2Port);
    return true;
  }
  return false;
}

void StressECGDeviceManager::closePort() {
  // The ports of the monitor and the oximeter stay open: they go on measuring when the exercise has ended.
  if (devicePort) devicePort->close();
}

// Each command holds its device until it returns: a driver may tell the host of an error within the command,
// and the host may then choose another device.

void StressECGDeviceManager::startStressDevice() {
  if (const auto device = currentDevice) device->startDeivce();
}

void StressECGDeviceManager::stopStressDevice() {
  if (const auto device = currentDevice) device->stopStressDevice();
}

void StressECGDeviceManager::setLoad(float kmph_or_power, float grade) {
  if (const auto device = currentDevice) device->setLoad(kmph_or_power, grade);
}

void StressECGDeviceManager::requestLoad() {
  if (const auto device = currentDevice) device->requestLoad();
}

void StressECGDeviceManager::deviceState() {
  if (const auto device = currentDevice) device->deviceState();
}

void StressECGDeviceManager::commandMonitor(void (KivStressDevice::*command)()) {
  isTango = true;
  const auto monitor = BPD;
  if (!monitor) return;
  monitor->setSerialPort(BPPort);
  (*monitor.*command)();
}

void StressECGDeviceManager::startBP(bool isPeripheral) {
  if (isPeripheral) return commandMonitor(&KivStressDevice::startBP);
  const auto device = currentDevice;
  if (!device) return;
  // Of the commands to the built-in unit only this one binds the port again.
  device->setSerialPort(devicePort);
  device->startBP();
}

void StressECGDeviceManager::breakBP(bool isPeripheral) {
  if (isPeripheral) return commandMonitor(&KivStressDevice::breakBP);
  if (const auto device = currentDevice) device->breakBP();
}

void StressECGDeviceManager::requestBP(bool isPeripheral) {
  if (isPeripheral) return commandMonitor(&KivStressDevice::requestBP);
  if (const auto device = currentDevice) device->requestBP();
}

void StressECGDeviceManager::clearBP(bool isPeripheral) {
  // The other way round than its neighbours: only the separate monitor stores measurements that can be
  // cleared, and hosts ask for it with false.
  if (!isPeripheral) commandMonitor(&KivStressDevice::clearBP);
}

void StressECGDeviceManager::startSpO2(PortType type) {
  // requestSpO2() rather than the devices' startSpO2(): the monitor has one SpO2 command, and every role is
  // treated as the monitor is.
  switch (type) {
    case PortType::device:
      if (const auto device = currentDevice) device->requestSpO2();
      return;
    case PortType::BP:
      if (const auto monitor = BPD) monitor->requestSpO2();
      return;
    case PortType::SpO2:
      if (const auto oximeter = SpO2D) oximeter->requestSpO2();
      return;
  }
  unexpectedPortType(type);
}

void StressECGDeviceManager::stopSpO2(PortType type) {
  switch (type) {
    case PortType::device:
    case PortType::SpO2:
      // Nothing to send: an exercise device answers once, an oximeter reports for as long as it is connected.
      return;
    case PortType::BP:
      // The monitor's one SpO2 command is sent to start and to stop alike.
      if (const auto monitor = BPD) monitor->requestSpO2();
      return;
  }
  unexpectedPortType(type);
}

bool StressECGDeviceManager::isSpO2Bluetooth(const std::string& name) const {
  return getSpO2BlueToothName() == name;
}

std::optional<std::string> StressECGDeviceManager::getSpO2BlueToothName() const {
  return peripheral ? peripheral->name() : std::nullopt;
}

void StressECGDeviceManager::connectBluetoothSpO2() {
  // A central may tell its delegate at once, and the host may choose another oximeter then.
  const auto central = btManager;
  const auto oximeter = peripheral;
  if (central && oximeter) central->connect(oximeter);
}

void StressECGDeviceManager::serialPortWasOpened(ORSSerialPort& /*port*/) {
  delegate.portWasOpened();
}

void StressECGDeviceManager::serialPortWasRemovedFromSystem(ORSSerialPort& /*port*/) {
  delegate.portWasRemovedFromSystem();
}

void StressECGDeviceManager::serialPortDidEncounterError(ORSSerialPort& /*port*/, const Error& error) {
  printLine(error.description(), PrintedText::diagnostic);
}

void StressECGDeviceManager::serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& /*data*/) {}

}  // namespace tarsil
