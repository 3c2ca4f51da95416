#pragma once

#include <string_view>

#include "tarsil/drivers/ergometer/P10Ergometer.hpp"

namespace tarsil {

/// Drives an Ergosana bicycle ergometer of the P10 protocol. Power and pedal rate go to `kiv_delegate`, blood
/// pressure to the shared manager's delegate.
class ErgosanaP10 final : public P10Ergometer {
 public:
  using P10Ergometer::P10Ergometer;

  /// Nothing uses them.
  float rp = 0;
  float rs = 0;

  /// Sends what `startBP()` sends first; only the second command of that one tells them apart.
  void startDeivce() override { sendText("S\r"); }

  void serialPortDidReceiveData(ORSSerialPort& port, const Bytes& data) override;
  void processReply(std::string_view text) override;

 private:
  ORSSerialPortDelegateRef portDelegate() override { return itself(*this); }
};

}  // namespace tarsil
