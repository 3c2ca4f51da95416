#include "tarsil/serial/detail/LineSettings.hpp"

namespace tarsil::detail {
namespace {

void assign(tcflag_t& flags, tcflag_t flag, bool set) {
  flags = set ? (flags | flag) : (flags & ~flag);
}

void setCharacterSize(tcflag_t& flags, std::uint64_t bits) {
  // 5 and 6 have no size of their own: whatever is not 7 or 8 leaves the field cleared, which means 5 bits.
  flags &= ~static_cast<tcflag_t>(CSIZE);
  if (bits == 7) flags |= CS7;
  if (bits == 8) flags |= CS8;
}

void setParity(tcflag_t& flags, ORSSerialPortParity parity) {
  assign(flags, PARENB, parity != ORSSerialPortParity::None);
  // Without parity the kind of parity stays as it is.
  if (parity != ORSSerialPortParity::None) assign(flags, PARODD, parity == ORSSerialPortParity::Odd);
}

}  // namespace

TerminalAttributes attributesFor(const LineSettings& settings, TerminalAttributes current) {
  termios& modes = current.modes;
  cfmakeraw(&modes);
  // Some systems' raw leaves flags on that lose received bytes, change them, or send an XOFF (INPCK, IUCLC,
  // IXOFF).
  modes.c_iflag = 0;
  modes.c_cc[VMIN] = 1;
  modes.c_cc[VTIME] = 2;
  setCharacterSize(modes.c_cflag, settings.numberOfDataBits);
  setParity(modes.c_cflag, settings.parity);
  current.stickParity = false;
  assign(modes.c_cflag, CSTOPB, settings.numberOfStopBits >= 2);
  assign(modes.c_lflag, ECHO, settings.shouldEchoReceivedData);
  assign(modes.c_lflag, ICANON | ISIG, false);
  assign(modes.c_cflag, CREAD | CLOCAL | HUPCL, true);
  current.rtsCtsFlowControl = settings.usesRTSCTSFlowControl;
  current.dtrDsrFlowControl = settings.usesDTRDSRFlowControl;
  current.dcdOutputFlowControl = settings.usesDCDOutputFlowControl;
  current.speed = settings.baudRate;
  return current;
}

}  // namespace tarsil::detail
