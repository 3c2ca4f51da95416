#pragma once

#include "tarsil/drivers/SerialDriver.hpp"

namespace tarsil {

/// A pulse oximeter of which nothing is known: prints what it sends, as bytes and as text. The host hears of
/// nothing, not even that the port was opened or vanished, and port errors are not printed.
class SpO2Device final : public SerialDriver {
 public:
  explicit SpO2Device(const SpO2DeviceSettings& settings);
  /// An oximeter is made in no other way: each of these stops the process.
  SpO2Device();
  explicit SpO2Device(const ExerciseDeviceSettings& settings);
  explicit SpO2Device(const BPDeviceSettings& settings);

  void startDeivce() override {}
  void stopStressDevice() override {}
  void requestSpO2() override {}

  void serialPortWasOpened(ORSSerialPort& /*port*/) override {}
  void serialPortWasRemovedFromSystem(ORSSerialPort& /*port*/) override {}
  void serialPortDidEncounterError(ORSSerialPort& /*port*/, const Error& /*error*/) override {}
  void serialPortDidReceiveData(ORSSerialPort& port, const Bytes& data) override;

 private:
  ORSSerialPortDelegateRef portDelegate() override { return itself(*this); }
};

}  // namespace tarsil
