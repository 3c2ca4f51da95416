#include "tarsil/platform/linux/KernelTerminalDriver.hpp"

// The only source that includes the kernel's header: <termios.h> defines the same names in another way.
#include <asm/termbits.h>
#include <fcntl.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <thread>
#include <tuple>

namespace tarsil {
namespace {

static_assert(NCCS <= std::tuple_size_v<decltype(TerminalModes::c_cc)>);

struct SpeedCode {
  std::uint32_t speed;
  tcflag_t code;
};

constexpr std::array speedCodes{
    SpeedCode{0, B0},
    SpeedCode{50, B50},
    SpeedCode{75, B75},
    SpeedCode{110, B110},
    SpeedCode{134, B134},
    SpeedCode{150, B150},
    SpeedCode{200, B200},
    SpeedCode{300, B300},
    SpeedCode{600, B600},
    SpeedCode{1200, B1200},
    SpeedCode{1800, B1800},
    SpeedCode{2400, B2400},
    SpeedCode{4800, B4800},
    SpeedCode{9600, B9600},
    SpeedCode{19200, B19200},
    SpeedCode{38400, B38400},
    SpeedCode{57600, B57600},
    SpeedCode{115200, B115200},
    SpeedCode{230400, B230400},
    SpeedCode{460800, B460800},
    SpeedCode{500000, B500000},
    SpeedCode{576000, B576000},
    SpeedCode{921600, B921600},
    SpeedCode{1000000, B1000000},
    SpeedCode{1152000, B1152000},
    SpeedCode{1500000, B1500000},
    SpeedCode{2000000, B2000000},
    SpeedCode{2500000, B2500000},
    SpeedCode{3000000, B3000000},
    SpeedCode{3500000, B3500000},
    SpeedCode{4000000, B4000000},
};

std::optional<tcflag_t> codeOf(std::uint64_t speed) {
  const auto* entry = std::find_if(speedCodes.begin(), speedCodes.end(),
                                   [=](const SpeedCode& known) { return known.speed == speed; });
  if (entry == speedCodes.end()) return std::nullopt;
  return entry->code;
}

// Control modes that the attributes have members of their own for.
constexpr tcflag_t keptElsewhere = CBAUD | CIBAUD | CRTSCTS | CMSPAR;

tcflag_t speedBits(std::uint64_t speed) {
  return codeOf(speed).value_or(BOTHER);
}

termios2 kernelForm(const TerminalAttributes& attributes) {
  const TerminalModes& modes = attributes.modes;
  termios2 form{};
  form.c_iflag = modes.c_iflag;
  form.c_oflag = modes.c_oflag;
  form.c_cflag = (modes.c_cflag & ~keptElsewhere) | speedBits(attributes.speed);
  form.c_ospeed = static_cast<speed_t>(attributes.speed);
  // With its bits clear, the input speed follows the output speed.
  form.c_ispeed = form.c_ospeed;
  if (attributes.inputSpeed != 0) {
    form.c_cflag |= speedBits(attributes.inputSpeed) << IBSHIFT;
    form.c_ispeed = static_cast<speed_t>(attributes.inputSpeed);
  }
  if (attributes.rtsCtsFlowControl) form.c_cflag |= CRTSCTS;
  if (attributes.stickParity) form.c_cflag |= CMSPAR;
  form.c_lflag = modes.c_lflag;
  form.c_line = modes.c_line;
  std::copy_n(modes.c_cc.begin(), std::size(form.c_cc), form.c_cc);
  return form;
}

TerminalAttributes attributesOf(const termios2& form) {
  TerminalAttributes attributes;
  attributes.modes.c_iflag = form.c_iflag;
  attributes.modes.c_oflag = form.c_oflag;
  attributes.modes.c_cflag = form.c_cflag & ~keptElsewhere;
  attributes.modes.c_lflag = form.c_lflag;
  attributes.modes.c_line = form.c_line;
  std::copy(std::begin(form.c_cc), std::end(form.c_cc), attributes.modes.c_cc.begin());
  attributes.speed = form.c_ospeed;
  if (form.c_ispeed != form.c_ospeed) attributes.inputSpeed = form.c_ispeed;
  attributes.rtsCtsFlowControl = (form.c_cflag & CRTSCTS) != 0;
  attributes.stickParity = (form.c_cflag & CMSPAR) != 0;
  return attributes;
}

}  // namespace

int KernelTerminalDriver::getSettings(int descriptor, TerminalAttributes& settings) {
  termios2 form{};
  if (ioctl(descriptor, TCGETS2, &form) < 0) return -1;
  settings = attributesOf(form);
  return 0;
}

int KernelTerminalDriver::setSettings(int descriptor, const TerminalAttributes& settings) {
  const termios2 form = kernelForm(settings);
  return ioctl(descriptor, TCSETS2, &form);
}

int KernelTerminalDriver::setSettingsAfterOutput(int descriptor, const TerminalAttributes& settings) {
  const termios2 form = kernelForm(settings);
  return ioctl(descriptor, TCSETSW2, &form);
}

int KernelTerminalDriver::getModemLines(int descriptor, int& lines) {
  return ioctl(descriptor, TIOCMGET, &lines);
}

int KernelTerminalDriver::setModemLines(int descriptor, int lines) {
  return ioctl(descriptor, TIOCMSET, &lines);
}

int KernelTerminalDriver::getUnsentCount(int descriptor, int& count) {
  return ioctl(descriptor, TIOCOUTQ, &count);
}

int KernelTerminalDriver::discardUnsent(int descriptor) {
  return ioctl(descriptor, TCFLSH, TCOFLUSH);
}

// Starting the output again wakes the write, and only stopped output can be started.
void KernelTerminalDriver::endWrites(int descriptor) {
  fcntl(descriptor, F_SETFL, O_NONBLOCK);
  ioctl(descriptor, TCXONC, TCOOFF);
  ioctl(descriptor, TCXONC, TCOON);
}

void KernelTerminalDriver::pause() {
  std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

bool isStandardSpeed(std::uint64_t speed) {
  return codeOf(speed).has_value();
}

}  // namespace tarsil
