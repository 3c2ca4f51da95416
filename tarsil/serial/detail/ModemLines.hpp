#pragma once

namespace tarsil::detail {

/// The modem lines as a port knows them: driven by it (RTS, DTR) or last polled (CTS, DSR, DCD).
struct ModemLines {
  bool RTS = false;
  bool DTR = false;
  bool CTS = false;
  bool DSR = false;
  bool DCD = false;
};

}  // namespace tarsil::detail
