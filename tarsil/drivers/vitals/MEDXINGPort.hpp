#pragma once

#include <memory>
#include <string>

#include "tarsil/core/ReplyFraming.hpp"
#include "tarsil/drivers/SerialDriver.hpp"

namespace tarsil {

/// Receives the oxygen saturation of a MEDXING pulse oximeter on a serial port, 9600 baud, and reports each
/// changed value as `onReceivedSpO2WithSpO2`, in percent, -1 for no saturation, status 1. It sends nothing:
/// the oximeter measures by itself. Each chunk of the port is looked at by itself: a frame that comes in two
/// is lost, and when the first of them has six to eight bytes the host is told -1, although the saturation
/// has not changed.
class MEDXINGPort final : public SerialDriver {
 public:
  explicit MEDXINGPort(const SpO2DeviceSettings& settings) : SerialDriver(settings) {}
  /// An oximeter is made in no other way: each of these stops the process.
  MEDXINGPort();
  explicit MEDXINGPort(const ExerciseDeviceSettings& settings);
  explicit MEDXINGPort(const BPDeviceSettings& settings);

  /// How the machine's replies are cut. Any thread.
  static std::unique_ptr<ReplyFraming> makeFraming();

  /// The two hexadecimal digits of the saturation reported last; survives closing and opening.
  std::string befoSpO2Value;

  void requestSpO2() override {}

  void serialPortDidReceiveData(ORSSerialPort& port, const Bytes& data) override;

 private:
  ORSSerialPortDelegateRef portDelegate() override { return itself(*this); }
};

}  // namespace tarsil
