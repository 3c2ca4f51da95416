#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "tarsil/core/ReplyFraming.hpp"
#include "tarsil/drivers/SerialDriver.hpp"

namespace tarsil {

/// Drives a Lode bicycle ergometer, 38400 baud: "1," (its unit number), two letters, digits, carriage return.
/// Send-only: the ergometer's answers are discarded, so the host learns of no power, pressure or error.
class LodeErgometer38K4 final : public SerialDriver {
 public:
  using SerialDriver::SerialDriver;

  /// What the machine answers is counted and never read. Any thread.
  static std::unique_ptr<ReplyFraming> makeFraming() { return makeUnreadFraming(); }

  /// Nothing uses it.
  bool isClose = false;
  /// Nothing uses it.
  std::string resultString;
  /// Code of the last command: 1 load, 2 and 4 the two halves of a load request, 5 to 7 start, break and
  /// result of a pressure.
  std::uint8_t type = 1;

  /// Power in watts, any value; the grade means nothing to a bicycle. What the ergometer gets is made from
  /// the last three characters of the power's decimal text, its point among them.
  void setLoad(float kmph_or_power, float grade) override;
  void requestLoad() override;
  /// Sends nothing, and neither does `startDeivce()`.
  void stopStressDevice() override {}
  void startBP() override { sendCommand(5, "312C42530D"); }
  void breakBP() override { sendCommand(6, "312C42510D"); }
  void requestBP() override { sendCommand(7, "312C42520D"); }

  void serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& /*data*/) override {}

 private:
  ORSSerialPortDelegateRef portDelegate() override { return itself(*this); }

  void sendCommand(std::uint8_t code, std::string_view hex);
};

}  // namespace tarsil
