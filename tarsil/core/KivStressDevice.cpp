#include "tarsil/core/KivStressDevice.hpp"

#include <utility>

#include "tarsil/log/FileManagerTool.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"

namespace tarsil {

KivStressDevice::KivStressDevice() : fm(FileManagerTool::share()) {}

KivStressDevice::KivStressDevice(const ExerciseDeviceSettings& settings) : KivStressDevice() {
  Treadmill_or_Ergometer = settings.Treadmill;
  name = settings.name;
  baud = settings.baud;
  databits = settings.databits;
  stopbits = settings.stopbits;
  parity = settings.parity;
  getWithBP_SpO2 = settings.getWithBP_SpO2;
  setWithBP_SpO2 = settings.setWithBP_SpO2;
  canStopBP = settings.canStopBP;
  autoSend = settings.autoSend;
  actualLoad = settings.actualLoad;
}

KivStressDevice::KivStressDevice(const BPDeviceSettings& settings) : KivStressDevice() {
  baud = settings.BP;
  databits = settings.databits;
  stopbits = settings.stopbits;
  parity = settings.parity;
  canStopBP = settings.canStopBP;
  autoSend = settings.autoSend;
}

KivStressDevice::KivStressDevice(const SpO2DeviceSettings& settings) : KivStressDevice() {
  name = settings.SpO2;
  baud = settings.baud;
  databits = settings.databits;
  stopbits = settings.stopbits;
  parity = settings.parity;
}

KivStressDevice::~KivStressDevice() = default;

const std::shared_ptr<ORSSerialPort>& KivStressDevice::serialPort() const {
  return serialPort_;
}

void KivStressDevice::setSerialPort(std::shared_ptr<ORSSerialPort> newPort) {
  serialPort_ = std::move(newPort);
  protPath = serialPort_ ? std::optional(serialPort_->path()) : std::nullopt;
}

void KivStressDevice::setDeviceFunction(bool /*isBP*/, bool /*isSpO2*/) {}
void KivStressDevice::setLoad(float /*kmph_or_power*/, float /*grade*/) {}
void KivStressDevice::requestLoad() {}
void KivStressDevice::startDeivce() {}
void KivStressDevice::stopStressDevice() {}
void KivStressDevice::startBP() {}
void KivStressDevice::breakBP() {}
void KivStressDevice::requestBP() {}
void KivStressDevice::clearBP() {}
void KivStressDevice::startSpO2() {}
void KivStressDevice::stopSpO2() {}
void KivStressDevice::requestSpO2() {}
void KivStressDevice::emergencyStop() {}
void KivStressDevice::emergencyStopRecover() {}
void KivStressDevice::requestStatus() {}
void KivStressDevice::deviceState() {}

}  // namespace tarsil
