#include "tarsil/serial/detail/LineSettings.hpp"

#include <termios.h>

#include <algorithm>

namespace tarsil::detail {
namespace {

void assign(tcflag_t& flags, tcflag_t flag, bool set) {
  flags = set ? (flags | flag) : (flags & ~flag);
}

void makeRaw(TerminalModes& modes) {
  termios system{};
  system.c_iflag = modes.c_iflag;
  system.c_oflag = modes.c_oflag;
  system.c_cflag = modes.c_cflag;
  system.c_lflag = modes.c_lflag;
  std::copy_n(modes.c_cc.begin(), std::size(system.c_cc), system.c_cc);
  cfmakeraw(&system);
  modes.c_iflag = system.c_iflag;
  modes.c_oflag = system.c_oflag;
  modes.c_cflag = system.c_cflag;
  modes.c_lflag = system.c_lflag;
  std::copy_n(system.c_cc, std::size(system.c_cc), modes.c_cc.begin());
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
  TerminalModes& modes = current.modes;
  makeRaw(modes);
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
  current.inputSpeed = 0;
  return current;
}

}  // namespace tarsil::detail
