#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>
#include <tarsil/platform/VirtualDeviceRegistry.hpp>

#include <string>

/// A pseudo-terminal without a device behind it, as a port that the host can choose.
class TerminalPort {
 public:
  explicit TerminalPort(const std::string& name) {
    grantpt(device_);
    unlockpt(device_);
    tarsil::VirtualDeviceRegistry::shared()->add(ptsname(device_), name);
  }
  ~TerminalPort() { close(device_); }
  TerminalPort(const TerminalPort&) = delete;
  TerminalPort& operator=(const TerminalPort&) = delete;

 private:
  int device_ = posix_openpt(O_RDWR | O_NOCTTY);
};
