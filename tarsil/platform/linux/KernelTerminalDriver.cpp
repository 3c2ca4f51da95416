#include "tarsil/platform/linux/KernelTerminalDriver.hpp"

// The only source that includes the kernel's header: <termios.h> defines the same names in another way.
#include <asm/termbits.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <thread>

namespace tarsil {
namespace {

static_assert(NCCS == DriverSettings::controlCharacterCount);

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

// The input speed's own bits stay clear: then it follows the output speed.
constexpr tcflag_t speedBits = CBAUD | CIBAUD;

termios2 kernelForm(const DriverSettings& settings) {
  termios2 form{};
  form.c_iflag = settings.inputModes;
  form.c_oflag = settings.outputModes;
  form.c_cflag = (settings.controlModes & ~speedBits) | codeOf(settings.speed).value_or(BOTHER);
  form.c_lflag = settings.localModes;
  form.c_line = settings.lineDiscipline;
  std::copy(settings.controlCharacters.begin(), settings.controlCharacters.end(), form.c_cc);
  form.c_ispeed = settings.speed;
  form.c_ospeed = settings.speed;
  return form;
}

}  // namespace

int KernelTerminalDriver::getSettings(int descriptor, DriverSettings& settings) {
  termios2 form{};
  if (ioctl(descriptor, TCGETS2, &form) < 0) return -1;
  settings.inputModes = form.c_iflag;
  settings.outputModes = form.c_oflag;
  settings.controlModes = form.c_cflag & ~speedBits;
  settings.localModes = form.c_lflag;
  settings.lineDiscipline = form.c_line;
  std::copy_n(form.c_cc, settings.controlCharacters.size(), settings.controlCharacters.begin());
  settings.speed = form.c_ospeed;
  return 0;
}

int KernelTerminalDriver::setSettings(int descriptor, const DriverSettings& settings) {
  const termios2 form = kernelForm(settings);
  return ioctl(descriptor, TCSETS2, &form);
}

int KernelTerminalDriver::setSettingsAfterOutput(int descriptor, const DriverSettings& settings) {
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

void KernelTerminalDriver::pause() {
  std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

bool isStandardSpeed(std::uint64_t speed) {
  return codeOf(speed).has_value();
}

}  // namespace tarsil
