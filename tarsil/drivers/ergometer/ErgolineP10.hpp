#pragma once

#include <string_view>

#include "tarsil/drivers/ergometer/P10Ergometer.hpp"

namespace tarsil {

/// Drives an Ergoline bicycle ergometer of the P10 protocol. Every value it reports goes to the shared
/// manager's delegate, not to `kiv_delegate`.
class ErgolineP10 final : public P10Ergometer {
 public:
  using P10Ergometer::P10Ergometer;

  void startDeivce() override { sendText("s\r"); }

  /// Prints the bytes after they have been processed.
  void serialPortDidReceiveData(ORSSerialPort& port, const Bytes& data) override;
  void processReply(std::string_view text) override;

 private:
  ORSSerialPortDelegateRef portDelegate() override { return itself(*this); }
};

}  // namespace tarsil
