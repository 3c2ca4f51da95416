#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tarsil/core/ReplyFraming.hpp"
#include "tarsil/drivers/SerialDriver.hpp"

namespace tarsil {

/// Drives a TM-400 V2 treadmill, 4800 baud. Send-only: the treadmill's answers are discarded, so the host
/// learns of no load, no readiness and no error.
class TM_400V2 final : public SerialDriver {
 public:
  using SerialDriver::SerialDriver;

  /// What the machine answers is counted and never read. Any thread.
  static std::unique_ptr<ReplyFraming> makeFraming() { return makeUnreadFraming(); }

  void startDeivce() override { sendHex("23E310001000FD"); }
  void stopStressDevice() override { sendHex("23E310002000ED"); }
  /// Speed in km/h, sent in tenths without fraction; nothing limits it. One whose tenths are no 64-bit
  /// integer stops the process. The grade is never sent.
  void setLoad(float kmph_or_power, float grade) override;

  void serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& /*data*/) override {}

  /// The frames' hexadecimal texts. Neither the speed nor the check is padded, and both have a minus sign
  /// when they are negative: the conversion to bytes makes of such a text what it can.
  static std::string speedFrame(std::int64_t tenths);
  static std::string gradeFrame(std::int64_t percent);

 private:
  ORSSerialPortDelegateRef portDelegate() override { return itself(*this); }
};

}  // namespace tarsil
