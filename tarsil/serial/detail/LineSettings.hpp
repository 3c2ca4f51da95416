#pragma once

#include <cstdint>

#include "tarsil/platform/Terminal.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"

namespace tarsil::detail {

/// A port's line parameters, at their defaults.
struct LineSettings {
  /// bit/s
  std::uint64_t baudRate = 19200;
  bool allowsNonStandardBaudRates = false;
  std::uint64_t numberOfStopBits = 1;
  std::uint64_t numberOfDataBits = 8;
  ORSSerialPortParity parity = ORSSerialPortParity::None;
  bool shouldEchoReceivedData = false;
  bool usesRTSCTSFlowControl = false;
  bool usesDTRDSRFlowControl = false;
  bool usesDCDOutputFlowControl = false;
};

/// A terminal's current attributes with the settings laid over them: raw, a read returns after at least one
/// byte (or 0.2 s after the last), no hang-up by the modem lines.
TerminalAttributes attributesFor(const LineSettings& settings, TerminalAttributes current);

}  // namespace tarsil::detail
