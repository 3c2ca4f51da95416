#include "tests/bluez/PrivateBus.hpp"

#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "tarsil/runtime/RunLoop.hpp"

namespace tarsil {

using namespace std::chrono_literals;

PrivateBus::PrivateBus(const std::string& configuration)
    : daemon_({"dbus-daemon",
               std::string("--config-file=") + BUS_CONFIGURATION + "/" + configuration + ".conf", "--nofork",
               "--nopidfile", "--print-address=1"}) {
  const bool started = RunLoop::main().runUntil([&] { return !daemon_.lines().empty(); }, 10s);
  if (!started) throw std::runtime_error("dbus-daemon does not start: is it installed?");
  setenv("DBUS_SYSTEM_BUS_ADDRESS", daemon_.lines().front().c_str(), 1);
}

void PrivateBus::kill() const {
  daemon_.signal(SIGKILL);
}

}  // namespace tarsil
