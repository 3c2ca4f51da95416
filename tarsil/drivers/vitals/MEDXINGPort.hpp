#pragma once

#include <string>

#include "tarsil/drivers/SerialDriver.hpp"

namespace tarsil {

/// Receives the oxygen saturation of a MEDXING pulse oximeter on a serial port, 9600 baud, and reports each
/// changed value as `onReceivedSpO2WithSpO2`, in percent, status 1. It sends nothing: the oximeter measures
/// by itself. A frame that the port delivers in two chunks is lost, and nothing else is ever reported.
class MEDXINGPort final : public SerialDriver {
 public:
  explicit MEDXINGPort(const SpO2DeviceSettings& settings) : SerialDriver(settings) {}
  /// An oximeter is made in no other way: each of these stops the process.
  MEDXINGPort();
  explicit MEDXINGPort(const ExerciseDeviceSettings& settings);
  explicit MEDXINGPort(const BPDeviceSettings& settings);

  /// The two hexadecimal digits of the saturation reported last; survives closing and opening.
  std::string befoSpO2Value;

  void requestSpO2() override {}

  void serialPortDidReceiveData(ORSSerialPort& port, const Bytes& data) override;
};

}  // namespace tarsil
