#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "tarsil/core/ReplyFraming.hpp"
#include "tarsil/drivers/SerialDriver.hpp"

namespace tarsil {

/// Drives an Ergometrics bicycle ergometer of the P3 protocol, 4800 baud. Send-only: the ergometer's answers
/// are discarded, so the host learns of no power, pedal rate, pressure or error. Where an operation has two
/// commands, they go out back to back.
class ErgometricsP3 final : public SerialDriver {
 public:
  using SerialDriver::SerialDriver;

  /// What the machine answers is counted and never read. Any thread.
  static std::unique_ptr<ReplyFraming> makeFraming() { return makeUnreadFraming(); }

  /// Set by `startBP()`. Nothing uses it, nor the other fields.
  bool isBPCommand = false;
  bool isRequest = false;
  std::optional<float> p10SBP;
  std::optional<float> p10DBP;
  std::uint8_t type = 0;
  std::string result;

  /// Power in watts; the grade means nothing to a bicycle. A power that is no 64-bit integer stops the
  /// process.
  void setLoad(float kmph_or_power, float grade) override;
  void requestLoad() override;
  void startDeivce() override { sendText("S\r"); }
  void stopStressDevice() override;
  void startBP() override;
  /// The protocol cannot abort a measurement: sends nothing.
  void breakBP() override {}
  void requestBP() override { sendText("O\r"); }

  void serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& /*data*/) override {}

 private:
  ORSSerialPortDelegateRef portDelegate() override { return itself(*this); }
};

}  // namespace tarsil
